" SPDX-License-Identifier: MIT
autocmd BufNewFile,BufRead install.ini setfiletype ins-script
