# SPDX-License-Identifier: MIT
# Completion of ins-setup for bash: source it, or put it into
# /usr/share/bash-completion/completions/ins-setup.

_ins_setup_options() { # COMMAND
    local run='--kit --json --quiet -q --json-events --progress-fd --wait --backup --detailed-exit-code'
    run+=' --offline-services --allow-conflicts --root'
    case $1 in
    install)
        run+=' --addProfileLine --values --reinstall --no-check --allow-downgrade --start-services --rollback --yes -y'
        echo "$run --allow-unsigned"
        ;;
    remove) echo "$run --yes -y --purge --allow-unsigned" ;;
    status) echo '--kit --json --verify --root' ;;
    restore) echo '--kit --json --quiet -q --wait --detailed-exit-code --force --root' ;;
    list) echo '--json --root' ;;
    verify) echo '--json --root' ;;
    check) echo '--kit --json --strict' ;;
    'plan install') echo '--kit --json --offline-services --allow-conflicts --root' ;;
    'plan remove') echo '--kit --json --offline-services --allow-conflicts --purge --root' ;;
    macros) echo '--kit --json --root' ;;
    'kit add') echo '--kit' ;;
    'kit seal') echo '--kit --sign' ;;
    'kit key new') echo '--no-password' ;;
    'kit new') echo '--service' ;;
    'kit bundle') echo '--kit --output -o --join --sign' ;;
    '') echo '--version --licences' ;;
    esac
    case $1 in
    plan | kit | 'kit key') ;;
    *) echo '--color' ;;
    esac
    echo '--help -h'
}

# Whoever may not look at what is remembered sees the links of what is installed.
_ins_setup_products() {
    local directory name
    if [[ -r ${INSPP_STATE:-/var/lib/ins++} ]]; then
        ls "${INSPP_STATE:-/var/lib/ins++}"
        return
    fi
    for directory in /etc/*/; do
        name=$(basename "$directory")
        [[ -L $directory$name ]] && echo "$name"
    done
}

# Kits where there are some, else the directories on the way to one.
_ins_setup_kits() { # BEGUN
    local directory found=()
    while IFS= read -r directory; do
        [[ -f $directory/product.ini ]] && found+=("$directory")
    done < <(compgen -d -- "$1")
    if ((${#found[@]})); then
        printf '%s\n' "${found[@]}"
    else
        compgen -d -- "$1"
    fi
}

_ins_setup() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' word index words=''
    COMPREPLY=()
    case $before in
    --kit)
        mapfile -t COMPREPLY < <(_ins_setup_kits "$current")
        return
        ;;
    --root)
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --color)
        mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$current")
        return
        ;;
    --output | -o | --sign | --values)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --wait | --progress-fd | --addProfileLine) return ;;
    esac
    # The command is the first word that is no option, and a further one behind "plan", "kit" and "kit key".
    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${COMP_WORDS[index]}
        case $command in
        '' | plan | kit | 'kit key' | help | 'help plan' | 'help kit' | 'help kit key' | 'help check')
            [[ $word == -* ]] || command=${command:+$command }$word
            ;;
        esac
    done
    if [[ $current == -* ]]; then
        words=$(_ins_setup_options "$command")
    else
        case $command in
        '') words='install remove status restore list verify check plan macros kit help' ;;
        help) words='install remove status restore list verify check plan macros kit' ;;
        'help check')
            words=$(ins-setup help check 2>/dev/null | sed -n 's/^    \([a-z-]*\)  *\(error\|warning\)$/\1/p')
            ;;
        plan | 'help plan') words='install remove' ;;
        kit | 'help kit') words='new add seal bundle key' ;;
        'kit key' | 'help kit key') words='new' ;;
        remove | status | restore) words=$(_ins_setup_products 2>/dev/null) ;;
        verify)
            mapfile -t COMPREPLY < <(
                _ins_setup_kits "$current"
                compgen -f -X '!*.run' -- "$current"
            )
            return
            ;;
        install)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        'plan install' | 'plan remove' | macros | 'kit new' | 'kit add')
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -o filenames -F _ins_setup ins-setup
