# What users get. Sourced by scripts/windows.
# shellcheck shell=bash

# Copies the DLLs that a file needs, and those that they need, but not the system's own, beside it.
# The compiler's runtime comes from the compiler: what was built elsewhere with an older one runs with it, too.
copy_needed() {
    local name found
    for name in $("$triplet-objdump" -p "$1" | sed -n 's/^\s*DLL Name: //p'); do
        [[ ! -e $2/$name ]] || continue
        found=$("$triplet-g++-posix" -print-file-name="$name")
        [[ $found == /* ]] || found=$VELMORA_WINDOWS_KIT/bin/$name
        [[ -e $found ]] || continue # Windows has it
        cp "$found" "$2/"
        [[ $found == "$VELMORA_WINDOWS_KIT"/* ]] || "$triplet-strip" --strip-unneeded "$2/$name" # tenfold otherwise
        copy_needed "$found" "$2"
    done
}

copy_licences() {
    local to=$1 package
    mkdir -p "$to"
    [[ ! -d $VELMORA_WINDOWS_KIT/licenses ]] || cp -r "$VELMORA_WINDOWS_KIT/licenses/." "$to/"
    for package in libqt5core5a libqt5websockets5 libssl3 libcurl4 libz-mingw-w64 gcc-mingw-w64-x86-64-posix-runtime \
        mingw-w64-x86-64-dev libcli11-dev; do
        cp -L "/usr/share/doc/$package/copyright" "$to/$package.txt"
    done
    cp -L /usr/share/common-licenses/{Apache-2.0,GPL-2,GPL-3,LGPL-2.1,LGPL-3} "$to/"
}

pack() {
    local to=$scratch/$package library
    quietly "$log" cmake --install "$folder" --prefix "$to" --strip
    copy_needed "$to/bin/velmora.dll" "$to/bin"
    for library in "$VELMORA_WINDOWS_KIT"/bin/lib{ssl,crypto}-*.dll; do # Qt may load them by name
        [[ ! -e $library ]] || cp "$library" "$to/bin/"
    done
    copy_licences "$to/licenses"
    sed "s/@VERSION@/$version/" cmake/windows-package.txt >"$to/README.txt"
    rm -rf "$to/lib/pkgconfig" "$to/share"
    rm -f "$folder/$package.zip"
    (cd "$scratch" && cmake -E tar cf "$folder/$package.zip" --format=zip "$package")
    say "Packed $(basename "$folder")/$package.zip, $(du -h "$folder/$package.zip" | cut -f1):"
    (cd "$to" && find . -path ./include -prune -o -path ./licenses -prune -o -type f -printf '%10s  %P\n' | sort -k2) >&2
    say "and include/ ($(find "$to/include" -type f | wc -l) files), licenses/ ($(find "$to/licenses" -type f | wc -l) files)"
}
