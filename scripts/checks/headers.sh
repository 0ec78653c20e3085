# shellcheck shell=bash
# Every public header alone, twice, by a compiler that cannot find Qt.
check_headers() {
    local header bad=0 count=0 strict=(-fsyntax-only -Wall -Wextra -Wpedantic -Werror -Iinclude)
    unset CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH
    for header in QString QtCore/QString QtCore/qglobal.h; do
        if g++ -std=c++17 "${strict[@]}" -x c++ - <<<"#include <$header>" 2>/dev/null; then
            echo "<$header> is found without any path to Qt: this check would prove nothing" && bad=1
        fi
    done
    while IFS= read -r -d '' header; do
        count=$((count + 1))
        local use="#include <${header#include/}>"
        printf '%s\n' "$use" "$use" | g++ -std=c++17 "${strict[@]}" -x c++ - 2>&1 || bad=1
        if [[ $header =~ /(CloudAPIFlat(Types)?|Version)\.h$ ]]; then
            printf '%s\n' "$use" "$use" | gcc -std=c11 "${strict[@]}" -Wstrict-prototypes -x c - 2>&1 || bad=1
        fi
        # Debian keeps Qt below a folder that is always searched: <qt5/QtCore/...> is found, partly.
        if g++ -std=c++17 -M -Iinclude -x c++ - <<<"$use" 2>/dev/null | grep -iE '/qt[0-9]*/|/Qt[A-Z]'; then
            echo "$header includes Qt" && bad=1
        fi
    done < <(files 'include/velmora/*.h')
    ((count)) || { echo "no public headers found" && bad=1; }
    return "$bad"
}
