# Bash completion of camhost and virtcam: commands and options as their own --help lists them, so
# that it cannot fall behind.

# The commands after the words so far.
_aitorixcamera_commands()
{
    "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}

_aitorixcamera()
{
    local cur prev words cword split
    _init_completion -s || return

    local command=("${words[0]}") word
    for word in "${words[@]:1:cword-1}"; do
        if _aitorixcamera_commands "${command[@]}" | grep -qx -- "$word"; then
            command+=("$word")
        fi
    done
    case $prev in
        --plugin | --log | --output | --json | --virtual-bus | --source | --config | --faults | --status)
            _filedir
            return
            ;;
        --virtual)
            COMPREPLY=($(compgen -W "boot running missing never-returns old-boot unplug-at-3s" -- "$cur"))
            _filedir json
            return
            ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$("${command[@]}" --help 2>/dev/null |
            grep -o -- '--[a-z][a-z0-9-]*' | sort -u)" -- "$cur"))
        return
    fi
    COMPREPLY=($(compgen -W "$(_aitorixcamera_commands "${command[@]}")" -- "$cur"))
    [[ ${COMPREPLY-} ]] || _filedir
} && complete -F _aitorixcamera camhost virtcam
