# Completion of velmora and velmora-window for bash.
# shellcheck shell=bash

# _velmora_names PATTERN WORD: folders and the files of that pattern; all files when none has it.
_velmora_names()
{
    compopt -o filenames 2>/dev/null
    local IFS=$'\n'
    COMPREPLY=($({ compgen -d -- "$2"; compgen -f -- "$2" | grep -E "$1"; } | sort -u))
    [ ${#COMPREPLY[@]} -gt 0 ] || COMPREPLY=($(compgen -f -- "$2"))
}

_velmora()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} words=
    COMPREPLY=()
    case $prev in
        -f) _velmora_names '\.(stl|astl|kvd)$' "$cur"; return ;;
        -o)
            _velmora_names '\.(stl|astl|kvd)$' "$cur"
            [ -n "$cur" ] || COMPREPLY+=("=")
            return ;;
        -e) _velmora_names '\.(stl|astl)$' "$cur"; return ;;
        -q) words='1 2 3 4' ;;
        -F | -O) words='a b m' ;;
        -E) words='a b' ;;
        -V) words='0 3 4 5 6 7' ;;
        -W) words='N' ;;
        -[acghijlmnprK]) return ;;
        *)
            words='-a -c -e -f -g -h -i -j -l -m -n -o -p -q -r -E -F -K -O -P -S -V -W'
            [ "$COMP_CWORD" -ne 1 ] || words+=' --help --version' ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
}

complete -F _velmora velmora velmora-window
