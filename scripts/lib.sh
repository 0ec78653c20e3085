# What the scripts beside this file share; sourced by them, not run. Bash with set -euo pipefail.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root"

say() { printf '%s\n' "$*" >&2; }

# 75 becomes "1 min 15 s".
duration() { (($1 < 60)) && printf '%d s' "$1" || printf '%d min %d s' $(($1 / 60)) $(($1 % 60)); }

# Shows the log of a command that failed: failed_with STATUS LOG COMMAND...
failed_with() {
    cat "$2" >&2
    say "failed with status $1: ${*:3} (log: $2)"
    return "$1"
}

# Runs a command with its output in a log that is shown only when the command fails.
# quietly LOG COMMAND...
quietly() { "${@:2}" >>"$1" 2>&1 </dev/null || failed_with $? "$@"; }

# Shows how far a build is, from Ninja's "[7/360] ...": a terminal sees a line that is rewritten, everyone else
# a line every ten seconds.
show_progress() {
    local line count='' next=$((SECONDS + 10)) status=0
    while IFS= read -r -t 1 line || { status=$? && ((status > 128)); }; do
        [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] && count="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}"
        if [[ -t 2 ]]; then
            [[ -z $count ]] || printf '\r\e[K[%s]' "${count/ of //}" >&2
        elif [[ -n $count ]] && ((SECONDS >= next)); then
            say "... $count"
            next=$((SECONDS + 10))
        fi
    done
    [[ ! -t 2 || -z $count ]] || printf '\r\e[K' >&2
}

packages=(
    g++ cmake ninja-build ccache pkg-config
    qtbase5-dev libqt5websockets5-dev libssl-dev libcurl4-openssl-dev zlib1g-dev libboost1.81-dev
    nlohmann-json3-dev libcli11-dev
    libgtest-dev libbenchmark-dev mono-mcs mono-runtime
    openssl curl ca-certificates python3
)

# What Qt 6 needs besides, and the examples with windows.
# shellcheck disable=SC2034 # read where this file is sourced
qt6_packages=(qt6-base-dev qt6-websockets-dev libgl-dev libvulkan-dev)

# What scripts/python needs besides.
python_packages=(python3-pip python3-setuptools python3-wheel python3-pytest mypy)

# Installs what a build needs and the machine lacks; more packages may be named as arguments.
# Without anything missing it touches nothing and needs no privileges and no network.
install_missing() {
    local package missing=() as_root=() log
    if ! command -v dpkg-query >/dev/null; then
        say "Not a Debian system; these packages, or their like, are needed: ${packages[*]} $*"
        return 0
    fi
    for package in "${packages[@]}" "$@"; do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            say "Missing packages: ${missing[*]}"
            say "Installing them takes root or sudo. As root: apt-get install ${missing[*]}"
            return 1
        fi
        as_root=(sudo)
    fi
    say "Installing ${missing[*]}"
    log=$(mktemp)
    # sudo drops the environment, so the variable travels behind it. A fresh machine may be busy with
    # its own upgrades: wait for the lock. -y lets apt replace another version of the Boost headers.
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300)
    quietly "$log" "${apt[@]}" update || return
    quietly "$log" "${apt[@]}" install --no-install-recommends "${missing[@]}" || return
    grep '^Removing ' "$log" >&2 || true # what had to give way is the user's business
    rm -f "$log"
}

build_folder() { [[ $1 == default ]] && echo build || echo "build-$1"; }

# configure_and_build PRESET [TARGET...]
configure_and_build() {
    local preset=$1 folder log start=$SECONDS
    shift
    folder=$(build_folder "$preset")
    mkdir -p "$folder"
    log=$folder/build.log
    : >"$log"
    say "Building in $folder/ ..."
    quietly "$log" cmake --preset "$preset" || return
    local build=(cmake --build --preset "$preset" ${1+--target "$@"})
    "${build[@]}" 2>&1 </dev/null | tee -a "$log" | show_progress || failed_with $? "$log" "${build[@]}" || return
    say "Built in $(duration $((SECONDS - start)))."
}

version() { sed -n 's/^#define VELMORA_VERSION "\(.*\)"$/\1/p' include/velmora/Version.h; }

# The names of the functions that the C headers declare as exported, one a line.
flat_names() {
    local header
    for header in include/velmora/{CloudAPIFlat,Version}.h; do
        g++ -fpreprocessed -dD -E -P -x c++ "$header" 2>/dev/null # takes the comments out, nothing else
    done | sed ':join; /\\$/ { N; b join }; /^ *#/d' | tr '\n' ' ' |
        grep -oP 'VELMORA_(?:EXPORT|FLAT)\b(?:\s*\([^()]*\))?[^;({]*?\K\w+(?=\s*\()' | sort -u
}

suppressions() { [[ ! -f tests/sanitizers/$1.supp ]] || printf ':suppressions="%s"' "$root/tests/sanitizers/$1.supp"; }

# fix_addresses PRESET SCRIPT [ARGUMENT...]: ThreadSanitizer cannot map its shadow where the kernel spreads addresses
# widely. Building runs programs too, so all of the script starts again without the spread.
fix_addresses() {
    [[ $1 == tsan && -z ${VELMORA_ADDRESSES_FIXED-} ]] || return 0
    setarch "$(uname -m)" -R true 2>/dev/null || return 0
    VELMORA_ADDRESSES_FIXED=1 exec setarch "$(uname -m)" -R "$root/scripts/$2" "${@:3}"
}

# How the sanitizers behave in what is run next. What the caller has set comes last and wins.
sanitizer_options() {
    export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
    export LSAN_OPTIONS="print_suppressions=0$(suppressions lsan)${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
    export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
    export TSAN_OPTIONS="halt_on_error=1:ignore_noninstrumented_modules=1:second_deadlock_stack=1$(suppressions tsan)${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
}
