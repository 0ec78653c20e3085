# What the build takes in besides the compiler. Sourced by scripts/windows.
# shellcheck shell=bash

# Unpacks an archive unless that was done before. Sets VELMORA_WINDOWS_KIT to the folder.
take_kit() {
    local kit=$VELMORA_WINDOWS_KIT stamp
    if [[ -f $kit ]]; then
        stamp=$folder/kit/.of
        if [[ "$(cat "$stamp" 2>/dev/null)" != "$(sha256sum <"$kit")" ]]; then
            rm -rf "$folder/kit"
            mkdir -p "$folder/kit"
            tar -xf "$kit" -C "$folder/kit"
            sha256sum <"$kit" >"$stamp"
        fi
        kit=$(find "$folder/kit" -maxdepth 3 -path '*/bin/Qt5Core.dll' -printf '%h\n' -quit)
        kit=${kit%/bin}
    fi
    if [[ -z $kit || ! -e $kit/bin/Qt5Core.dll || ! -e $kit/bin/Qt5WebSockets.dll || ! -d $kit/include/openssl ||
        ! -e $kit/bin/libcurl.dll ]]; then
        say "scripts/windows: $VELMORA_WINDOWS_KIT is no kit: Qt 5.15 with WebSockets, OpenSSL 3 and libcurl belong into it."
        exit 2
    fi
    VELMORA_WINDOWS_KIT=$(cd "$kit" && pwd -P)
    export VELMORA_WINDOWS_KIT
}

# What only tools and tests need: headers, the same on every system, and GoogleTest, built for Windows.
make_prefix() {
    local prefix=$folder/prefix part
    export VELMORA_WINDOWS_PREFIX=$prefix
    mkdir -p "$prefix/include" "$prefix/share/cmake"
    for part in boost nlohmann CLI; do
        ln -sfn "/usr/include/$part" "$prefix/include/$part"
    done
    for part in nlohmann_json CLI11; do
        ln -sfn "/usr/share/cmake/$part" "$prefix/share/cmake/$part"
    done
    [[ ! -e $prefix/lib/libgtest.a ]] || return 0
    quietly "$log" cmake -S /usr/src/googletest -B "$folder/googletest" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/windows-toolchain.cmake" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
        -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$prefix" || return
    quietly "$log" cmake --build "$folder/googletest" -j2 --target install
}
