# shellcheck shell=bash
# Words that are misspelt on purpose stand in scripts/checks/codespell.words, with the reason.
check_codespell() {
    grep -v '^#' scripts/checks/codespell.words >"$findings/words"
    files | grep -zvE '^tests/fuzz/corpus/|^docs/abi/|[.](png|ico)$|codespell[.]words$' |
        xargs -0 codespell --ignore-words="$findings/words"
}
