# What the DLL shows to others. Sourced by scripts/windows.
# shellcheck shell=bash

# Of the DLL: the flat functions as they are called, the classes' members, and nothing else.
check_exports() {
    local kind='_ZT[VISTc]N7Velmora|_ZN(K)?7Velmora'
    "$triplet-objdump" -p "$folder/bin/velmora.dll" |
        sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\s*\[ *[0-9]*\] \(\S*\)$/\1/p' | sort >"$scratch/exported"
    flat_names | sort >"$scratch/flat"
    grep -vxF -f "$scratch/flat" "$scratch/exported" | grep -vE "^($kind)(8CloudAPI|9JobSubmit|9TarnCrypt)" |
        sed 's/^/exported, but not meant to be: /' >"$scratch/findings" || true
    comm -13 "$scratch/exported" "$scratch/flat" |
        sed 's/^/declared as exported, but missing: /' >>"$scratch/findings"
    if [[ ! -s $scratch/exported || ! -s $scratch/flat || -s $scratch/findings ]]; then
        cat "$scratch/findings" >&2
        say "The DLL does not export what it should."
        return 1
    fi
    say "Exported names: $(wc -l <"$scratch/exported"), $(wc -l <"$scratch/flat") of them flat functions."
}

# What Windows shows of the DLL under "Details", read back from it.
check_version() {
    local field
    "$triplet-windres" -J coff -O rc "$folder/bin/velmora.dll" >"$scratch/resource"
    for field in "FILEVERSION ${version//./, }, 0" "PRODUCTVERSION ${version//./, }, 0" \
        "\"FileVersion\", \"$version\"" '"OriginalFilename", "velmora.dll"' '"ProductName", "Velmora"'; do
        grep -qF "$field" "$scratch/resource" || { say "The DLL's version resource lacks $field" && return 1; }
    done
    say "Version resource: $version."
}
