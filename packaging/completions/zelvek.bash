# What may stand next, as the program itself knows it.
_zelvek() {
  local line
  COMPREPLY=()
  while IFS= read -r line; do
    COMPREPLY+=("${line%%$'\t'*}")
  done < <(zelvek complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _zelvek zelvek
