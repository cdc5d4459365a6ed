# Completions for bash.
_korvane_vad() {
    local word=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-c --cleaned -h --help -V --version' -- "$word")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -F _korvane_vad korvane-vad
