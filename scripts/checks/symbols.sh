# shellcheck shell=bash
check_symbols() {
    local library=build/libvelmora.so name bad=0 kind='((vtable|typeinfo|typeinfo name|VTT) for )?'
    nm -D --defined-only -C "$library" >"$findings/readable" || return
    sed -E 's/^[0-9a-f]* +[A-Za-z] //' "$findings/readable" | sort -u >"$findings/symbols"
    flat_names >"$findings/flat" || true
    [[ -s $findings/flat ]] || { echo "no function read from the C headers" && bad=1; }
    if grep -vE "^${kind}Velmora::(CloudAPI|JobSubmit|TarnCrypt)(::|\$)" "$findings/symbols" |
        grep -vxF -f "$findings/flat" | sed 's/^/exported, but not meant to be: /' | grep .; then
        bad=1
    fi
    comm -13 "$findings/symbols" "$findings/flat" | sed 's/^/declared as exported, but missing: /' | grep . && bad=1
    for name in 'CloudAPI::CloudAPI()' 'CloudAPI::~CloudAPI()' 'JobSubmit::validate('; do
        grep -qF "Velmora::$name" "$findings/symbols" || { echo "missing: Velmora::$name" && bad=1; }
    done
    readelf -d "$library" | grep -qF 'Library soname: [libvelmora.so.1]' || { echo "SONAME is not libvelmora.so.1" && bad=1; }
    return "$bad"
}
