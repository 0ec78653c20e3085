# Source packages of this machine's mirror, with an index of our own. Sourced by scripts/windows-kit.
# shellcheck shell=bash

# apt with an index of sources that is ours.
own_apt() {
    local command=$1
    shift
    "$command" -q -o Dir::Etc::SourceList="$work/apt/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::State::Lists="$work/apt/lists" -o Dir::Cache="$work/apt/cache" -o APT::Sandbox::User=root "$@"
}

index_sources() {
    # shellcheck disable=SC2016 # apt fills these in
    apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        sort -u >"$work/apt/sources.list"
    [[ -s $work/apt/sources.list ]] || { say "apt knows no mirror" && return 1; }
    quietly "$work/log/index.log" own_apt apt-get update
}

versions_of() { own_apt apt-cache showsrc "$1" 2>/dev/null | sed -n 's/^Version: //p' | sort -Vru; }

# A mirror may list versions whose files it does not have: the newest that it has is taken.
fetch() {
    local source=$1 version
    for version in $(versions_of "$source"); do
        if (cd "$work/src" && own_apt apt-get source --download-only "$source=$version") >>"$work/log/fetch.log" 2>&1; then
            echo "$work/src/${source}_${version#*:}.dsc"
            return
        fi
    done
    return 1
}

not_served() {
    say "The mirror does not serve the sources of $1 (see ${work}/log/fetch.log while it is there)."
    [[ $1 != qtwebsockets* ]] || say "Give them by --websockets FOLDER, or take a kit of Qt's makers: scripts/windows --help"
}

unpack() {
    local description
    [[ ! -e $work/src/$1 ]] || return 0
    description=$(fetch "$1") || { not_served "$1" && return 1; }
    quietly "$work/log/unpack.log" dpkg-source --no-check -x "$description" "$work/src/$1.part"
    mv "$work/src/$1.part" "$work/src/$1"
}
