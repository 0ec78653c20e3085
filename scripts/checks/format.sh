# shellcheck shell=bash
# Formats in place, so that the remedy of a failure is to look and to commit.
check_format() {
    files '*.h' '*.cpp' >"$findings/sources"
    [[ -s $findings/sources ]] || { echo "no sources found" && return 1; }
    xargs -0 sha256sum <"$findings/sources" >"$findings/sums" || return
    xargs -0 clang-format -i --style=file <"$findings/sources" || return
    sha256sum --check --quiet "$findings/sums" 2>/dev/null | sed 's/: FAILED$/ was not formatted; it is now/'
    return "${PIPESTATUS[0]}"
}
