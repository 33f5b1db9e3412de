# bash completion of vkctl.

_vkctl()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} word
    local commands="status packages history verify repair hold unhold holds channel generations rollback refused accept"
    COMPREPLY=()
    [[ $cur != = ]] || cur=
    # "--socket=NAME" arrives as three words.
    if [[ $prev == --socket || ($prev == = && ${COMP_WORDS[COMP_CWORD - 2]} == --socket) ]]; then
        compopt -o filenames && mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word == hold ]]; then
            mapfile -t COMPREPLY < <(compgen -W "--until --json --socket --help --version" -- "$cur")
            return
        fi
        if [[ " $commands " == *" $word "* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "--json --socket --help --version" -- "$cur")
            return
        fi
    done
    mapfile -t COMPREPLY < <(compgen -W "$commands --until --json --socket --help --version" -- "$cur")
}

complete -F _vkctl vkctl
