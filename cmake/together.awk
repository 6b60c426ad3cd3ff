# SPDX-License-Identifier: MIT
# Makes one source of several tests, so that the templates which they share are compiled once:
#
#     awk -v out=TARGET -f together.awk pass=1 SOURCE... pass=2 SOURCE...
#
# First all that they include, then each in a namespace of its own, under its own name and with its
# own line numbers. So what two of them call alike does not meet.
FNR == 1 {
    if (pass == 2 && member) {
        print "}" > out
    }
    folder = FILENAME
    sub(/[^\/]*$/, "", folder)
    if (pass == 2) {
        # What a source adds to the namespace of all tests sees what is in there.
        printf "namespace test_source_%d {\nnamespace KTEST {\nusing namespace ::KTEST;\n}\n", ++member > out
        printf "#line 1 \"%s\"\n", FILENAME > out
    } else if (!started++) {
        print "namespace KTEST {}" > out
    }
}
/^#include/ {
    sub(/#include "/, "&" folder)
    if (pass == 1 && !seen[$0]++) {
        print > out
    } else if (pass == 2) {
        print "" > out
    }
    next
}
pass == 2 {
    print > out
}
END {
    print "}" > out
}
