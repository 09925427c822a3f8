# Completion of quorvane's commands, options and folders in bash: the program itself knows what comes next.
_quorvane() {
    local line word words=()
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        words+=("${word//[\\\"\']/}")
    done
    COMPREPLY=()
    while IFS= read -r line; do
        case $line in
            '<files>') compopt -o default ;;
            '<directories>') compopt -o dirnames ;;
            *) COMPREPLY+=("$(printf %q "${line%%$'\t'*}")") ;;
        esac
    done < <("${COMP_WORDS[0]/#\~/$HOME}" _complete -- "${words[@]}" 2>/dev/null)
}
complete -F _quorvane quorvane
