#!/bin/sh -
# SPDX-License-Identifier: MIT
#
# A bundle for several architectures. This executes the program for this machine's, which lies in this
# file; it unpacks the rest and runs it. What is set here is set in a subshell: the program gets
# the environment, the umask and the directory that this was called with.

quoted() { # TEXT: as JSON has it
    rest=$1
    while [ -n "$rest" ]; do
        letter=${rest%"${rest#?}"}
        rest=${rest#?}
        case $letter in
        [\\\"]) printf '\\%s' "$letter" ;;
        '
') printf '\\n' ;;
        [[:cntrl:]]) printf '?' ;;
        *) printf '%s' "$letter" ;;
        esac
    done
}

refuse() { # EXIT-CODE TEXT: in the form that was asked for, which whoever called "choose" writes
    printf 'ins-setup: %s\n' "$2" >&2
    printf '%s' "$1"
    [ -n "$json" ] || exit
    changed=
    case $command in install | remove | restore) changed=',"changed":false' ;; esac
    printf ' {"schema":1,"command":"%s","result":"refused","exitCode":%s%s,"error":{"text":"%s"}}' \
        "$(quoted "$command")" "$1" "$changed" "$(quoted "$2")"
    exit
}

read_words() { # WORD...: what counts here of the command line
    work='' json='' command=install task=run
    while [ $# -gt 0 ]; do
        case $1 in
        --work)
            work=${2-}
            [ $# -eq 1 ] || shift
            ;;
        --work=*) work=${1#*=} ;;
        --extract)
            task=other
            [ $# -eq 1 ] || shift
            ;;
        --list | --verify | --extract=*) task=other ;;
        *) break ;;
        esac
        shift
    done
    [ "${1-}" != -- ] || shift
    case ${1-} in
    -h | --help | --version | --licences) command=$1 ;;
    '' | -*) ;;
    *) command=$1 ;;
    esac
    for word; do
        [ "$word" != --json ] || [ $task != run ] || json=yes
    done
}

find_head() { # ARCHITECTURE
    sought=$1
    set -- @HEADS@
    while [ $# -gt 0 ]; do
        first=$2 count=$3
        [ "$1" != "$sought" ] || return 0
        shift 3
    done
    return 1
}

# Whether nobody else can exchange what is made in a directory: not in it, nor on the way to it.
is_closed() { # DIRECTORY
    directory=$1
    own=$(id -u) || return 1
    while :; do
        # shellcheck disable=SC2046 # fields
        set -- $(ls -ldn "$directory/.")
        case ${1-} in
        d????-??-* | d????????[tT]*) ;;
        *) return 1 ;;
        esac
        [ "${3-}" = 0 ] || [ "${3-}" = "$own" ] || return 1
        [ -n "$directory" ] || return 0
        directory=${directory%/*}
    done
}

put_into() { # DIRECTORY: the program, as $made/head; says why not. There need not be a /dev/null.
    why='not there'
    real=$(cd -P "$1" 2>&1 && pwd -P) || return 1
    real=${real%/}
    why='others can change it'
    is_closed "$real" || return 1
    why='cannot be written to'
    made=$(mktemp -d "$real/.ins-setup-head-XXXXXXXXXX" 2>&1) || {
        made=
        return 1
    }
    why=$(dd if="$file" of="$made/head" bs=4096 skip="$first" count="$count" 2>&1) || {
        why='has no room'
        return 1
    }
    size=$(wc -c < "$made/head") || return 1
    [ "$size" -eq $((count * 4096)) ] ||
        refuse 65 "$file: the bundle is damaged (it ends too early). Get it again."
    chmod 700 "$made/head" || return 1
    why='runs no programs'
    "$made/head" --can-run 2>&-
}

remove_made() {
    [ -z "$made" ] || rm -rf "$made"
    made=
}

choose() { # FILE [WORD...]: prints the path of the program, which is unpacked then; or the code, and JSON
    unset IFS CDPATH
    PATH=/usr/sbin:/usr/bin:/sbin:/bin
    set -f
    umask 077
    made='' file=$1
    shift
    read_words "$@"
    system=$(uname -m)
    case $system in
    x86_64 | amd64) find_head x86_64 || find_head x86 ;;
    i?86) find_head x86 ;;
    arm64) find_head aarch64 ;;
    *) find_head "$system" ;;
    esac || refuse 66 "$file: the bundle is for @NAMES@, and this machine is $system. Get one for that."
    trap remove_made EXIT
    trap 'printf 129; exit' HUP
    trap 'printf 130; exit' INT
    trap 'printf 131; exit' QUIT
    trap 'exit' PIPE # whoever called is gone
    trap 'printf 143; exit' TERM
    case $work in
    '') set -- /var/tmp /opt /tmp /var/lib /dev/shm ;;
    /*) set -- "$work" ;;
    *) set -- "./$work" ;;
    esac
    reasons=
    for place; do
        if put_into "$place"; then
            printf '%s' "$made/head" 2>&- && made=
            exit
        fi
        remove_made
        reasons="$reasons
    $place: $why"
    done
    refuse 73 "there is no directory to put the bundle's program into:$reasons
Name one that has room and runs programs with --work DIR, in front of the command."
}

# In no variable: one of that name may be in the environment, which would be changed.
set -- "$(choose "$0" "$@")" "--bundle-file=$0" "$@"
case $1 in
/*) exec "$@" ;;
*' '*) printf '%s\n' "${1#* }" ;;
esac
code=${1%% *}
exit "${code:-70}"
