" SPDX-License-Identifier: MIT
" Vim syntax file: scripts of ins-setup (ins-script(5)). Copy docs/vim to ~/.vim, or add it to 'runtimepath'.
if exists('b:current_syntax')
  finish
endif

syntax case match
" What no rule begins with is refused; the last six types are known to ins-setup, not to the engine alone.
syntax match insError /^\s*[^;#[[:blank:]][^=]*\ze\%(=\|$\)/
syntax match insComment /^\s*[;#].*$/
syntax match insSection /^\s*\[.*\]\s*$/
syntax match insType /^\s*\%(file\|directory\|section\|profile\|process\|service\|config\|link\|mode\|user\|command\|entry\)\s*\ze=/ nextgroup=insEquals
syntax match insDefault /^\s*defaultPath\.\$os\$\s*\ze=/ nextgroup=insEquals
syntax match insEquals /=\s*/ contained nextgroup=insOperation
" Only the operations that do something; in lower case, as file and process rules want them.
syntax match insOperation /\%(copy\|delete\|symlink\|create\|put\|remove_file\|start\|stop\|install\|remove\|replace\|set\|run\)\ze,/ contained
syntax match insComma /,/
" A blank behind a comma belongs to the field.
syntax match insBlank /,\@<=\s\+/
syntax match insMacro /\$\w\+\$/

highlight default link insError Error
highlight default link insComment Comment
highlight default link insSection Title
highlight default link insType Type
highlight default link insDefault PreProc
highlight default link insOperation Keyword
highlight default link insComma Delimiter
highlight default link insBlank Error
highlight default link insMacro Identifier

let b:current_syntax = 'ins-script'
