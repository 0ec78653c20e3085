# How each part of the kit is built. Sourced by scripts/windows-kit.
# shellcheck shell=bash

build_openssl() {
    # Compiled in: a folder of administrators only, never one of this machine.
    local ssl="C:/Program Files/Common Files/SSL"
    local folders=(OPENSSLDIR="$ssl" ENGINESDIR="$ssl/engines-3" MODULESDIR="$ssl/ossl-modules")
    rm -rf "$work/openssl" && mkdir "$work/openssl" && cd "$work/openssl"
    "$work/src/openssl/Configure" mingw64 --cross-compile-prefix=$triplet- shared no-tests no-module \
        --prefix=/openssl --libdir=lib --openssldir=/openssl/ssl
    make -j"$(nproc)" "${folders[@]}" build_libs
    make "${folders[@]}" DESTDIR="$work/stage" install_dev install_runtime_libs
    mkdir -p "$kit"/{bin,lib,include,licenses}
    cp -r "$work/stage/openssl/include/openssl" "$kit/include/"
    cp "$work"/stage/openssl/lib/*.dll.a "$kit/lib/"
    cp "$work"/stage/openssl/bin/*.dll "$kit/bin/"
    cp "$work/src/openssl/LICENSE.txt" "$kit/licenses/openssl.txt"
}

build_qtbase() {
    local sources=$work/src/qtbase-opensource-src
    rm -rf "$work/qtbase" && mkdir "$work/qtbase" && cd "$work/qtbase"
    "$sources/configure" -opensource -confirm-license -release -shared \
        -xplatform win32-g++ -device-option CROSS_COMPILE=$triplet- -prefix /qt -extprefix "$kit" -hostprefix "$kit" \
        -nomake examples -nomake tests -no-gui -no-widgets -no-dbus -no-opengl -no-icu -no-glib \
        -no-feature-sql -no-feature-concurrent -no-feature-xml -qt-zlib -qt-pcre -qt-doubleconversion \
        -openssl-linked -I "$kit/include" -L "$kit/lib" \
        OPENSSL_LIBS="-lssl -lcrypto -lws2_32 -lgdi32 -lcrypt32 -ladvapi32 -luser32" \
        QMAKE_CXXFLAGS+="-ffile-prefix-map=$work/=" QMAKE_CFLAGS+="-ffile-prefix-map=$work/="
    make -j"$(nproc)"
    make install
    cp "$sources"/LICENSE.* "$kit/licenses/"
}

build_websockets() {
    local sources=${websockets:-$work/src/qtwebsockets-opensource-src}
    rm -rf "$work/websockets" && cp -r "$sources" "$work/websockets" && cd "$work/websockets"
    [[ -d include ]] || mkdir -p .git # has qmake make the headers that a release comes with
    "$kit/bin/qmake" -o Makefile
    make sub-src-qmake_all
    make -j"$(nproc)" -C src
    make -C src install
}

# Qt names its import libraries lib*.a; what belongs to this machine, or is not needed, goes.
trim() {
    "$triplet-strip" --strip-unneeded "$kit"/bin/*.dll "$kit"/plugins/*/*.dll
    rm -rf "$kit"/{doc,lib/pkgconfig,lib/metatypes} "$kit"/lib/{*.prl,libQt5Bootstrap.*}
    sed -i '/EXTRA_/d; /prefix-map/d' "$kit/mkspecs/qmodule.pri"
}
