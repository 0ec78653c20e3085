# What is run under Wine: the tests, and what was packed. Sourced by scripts/windows.
# shellcheck shell=bash

# Wine's services start here: they would keep open what the first program writes to.
start_wine() {
    export WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES='mscoree,mshtml='
    export WINEQT_FORCE_STDERR_LOGGING=1 # arrives without the first four letters
    unset DISPLAY
    mkdir -p "$WINEPREFIX"
    "$wineserver" -p600 >/dev/null 2>&1
    wine cmd /c exit >/dev/null 2>&1 </dev/null
}

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

run_tests() {
    local excluded name found path
    path=$(windows_path "$VELMORA_WINDOWS_KIT/bin")
    for name in libgcc_s_seh-1 libstdc++-6 libwinpthread-1 zlib1; do # this machine's, which a kit need not have
        found=$("$triplet-g++-posix" -print-file-name=$name.dll)
        path="$(windows_path "$(dirname "$found")");$path"
    done
    excluded=$(sed "s/ *#.*//; /^$/d" tests/windows.excluded | paste -sd "|")
    # Wine loses an event of a socket now and then, and a program that has passed does not always end: a test has a
    # second chance. What is wrong in the code fails in both.
    WINEPATH=$path ctest --test-dir "$folder" -j2 --output-on-failure \
        --no-tests=error --repeat until-pass:2 ${excluded:+-E "$excluded"} ${smoke:+-R '^(model|flat|application)/'} \
        ${options[@]+"${options[@]}"} </dev/null
}

# The C application takes the library in by its package alone, and once more by the .def file, as other linkers do.
build_c_application() {
    local packed=$scratch/$package
    quietly "$log" cmake -S examples/tasks -B "$scratch/tasks" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/windows-toolchain.cmake" -DVELMORA_WINDOWS_PREFIX="$packed"
    quietly "$log" cmake --build "$scratch/tasks"
    quietly "$log" "$triplet-dlltool" -d "$packed/lib/velmora.def" -D velmora.dll -l "$scratch/by-def.a"
    quietly "$log" "$triplet-gcc-posix" -std=c11 -Wall -Wextra -Werror -I"$packed/include" examples/tasks/from_c.c \
        "$scratch/by-def.a" -o "$scratch/tasks/by_def.exe"
}

# Makes Wine trust the portal's authority, as an administrator does with a real one.
trust() {
    python3 scripts/windows.d/trust_reg.py "$1" >"$scratch/trust.reg"
    wine regedit /S "$(windows_path "$scratch/trust.reg")" </dev/null
}

# What was packed, on its own, against a portal of this machine: the client runs a job with files up and down,
# the C application another.
run_job() {
    local job program start=$SECONDS
    configure_and_build default velmora-portal
    start_portal "$scratch/portal.log" --job-duration 2

    # Names of every script and with blanks, and a path longer than 260 characters.
    job=$scratch/$'Ergebnis \xe7\xb5\x90\xe6\x9e\x9c'/$(printf 'long%.0s' {1..30})/$(printf 'longer%.0s' {1..25})
    mkdir -p "$job"
    cp examples/jobs/beam-single.json "$job/"
    head -c 64K /dev/urandom >"$job/beam.trninp"
    head -c 24M /dev/urandom >"$job/beam.mesh"
    head -c 3M /dev/urandom >"$job/steel.mat"
    wine "$scratch/$package/bin/velmora.exe" --host "$portal_host" --ca "$(windows_path "$portal_ca")" --quiet \
        run "$(windows_path "$job/beam-single.json")" --account ACC-1001 --to "$(windows_path "$job/results")" </dev/null
    # The solver's results are a line of check sums, then the bytes of all inputs in the job file's order.
    tail -n +2 "$job/results/sim-1/results.dat" | cmp - <(cat "$job"/{beam.trninp,beam.mesh,steel.mat})
    say "The client ran a job; its results are the inputs, byte for byte (path of ${#job} characters)."

    trust "$portal_ca"
    for program in from_c by_def; do
        cp "$scratch/tasks/$program.exe" "$scratch/$package/bin/"
        VELMORA_API_URL=$portal_host wine "$scratch/$package/bin/$program.exe" </dev/null >"$scratch/$program.out" 2>&1 ||
            { cat "$scratch/$program.out" >&2 && return 1; }
        grep -q 'Job status is FINISHED' "$scratch/$program.out" || { cat "$scratch/$program.out" >&2 && return 1; }
    done
    say "The C application ran a job, linked by the package and by the .def file."
    say "Jobs took $(duration $((SECONDS - start)))."
}
