" SPDX-License-Identifier: MIT
autocmd BufNewFile,BufRead install.ini set filetype=ins-script
