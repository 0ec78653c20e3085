# shellcheck shell=bash
# Bash scripts parse, by Bash itself; shellcheck finds what still goes wrong. Neither runs anything.
check_scripts() {
    local file bad=0
    shell_scripts >"$findings/scripts"
    [[ -s $findings/scripts ]] || { echo "no scripts found" && return 1; }
    while IFS= read -r -d '' file; do bash -n "$file" 2>&1 || bad=1; done <"$findings/scripts"
    return "$bad"
}

check_shellcheck() {
    shell_scripts | xargs -0 shellcheck --format=gcc
}

shell_scripts() {
    local file first
    files scripts .ci tests examples | while IFS= read -r -d '' file; do
        IFS= read -r first <"$file" 2>/dev/null || continue
        [[ $first != '#!'*sh && $first != '# shellcheck shell='* ]] || printf '%s\0' "$file"
    done
}
