# shellcheck shell=bash
escaped() { sed 's/[][\\.*^$+?(){}|]/\\&/g'; }

# Generated code is left out: only sources below these two folders are linted. The analyzer would spend
# minutes inside Boost's templates: what includes them gets all other checks.
check_lint() {
    local log=$findings/lint.log prefix boost status=0
    prefix=$(escaped <<<"$root")
    boost=$({ grep -rl --include='*.cpp' '#include <boost/' src tools || true; } | escaped | paste -sd '|')
    grep -qE '"file": "'"$prefix"'/src/' build/compile_commands.json || { echo "no sources in compile_commands.json" && return 1; }
    lint() { run-clang-tidy -p build -j2 -quiet -header-filter="^$prefix/(include/velmora|src|tools)/" "$@" 2>&1 </dev/null; }
    lint "^$prefix/(?!($boost)\$)(src|tools)/" >"$log" || status=$?
    [[ -z $boost ]] || lint -checks='-clang-analyzer-*' "^$prefix/($boost)\$" >>"$log" || status=$?
    # What remains of a clean run is one line per file with its command, and counts of what was left out.
    ((status == 0)) || sed -E 's/\x1b\[[0-9;]*m//g' "$log" |
        grep -vE '^clang-tidy[^ ]* -|^[0-9]+ warnings? (and .* )?generated' || true
    return "$status"
}
