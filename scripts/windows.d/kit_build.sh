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

# HTTP and HTTPS only.
build_curl() {
    export VELMORA_WINDOWS_KIT=$kit VELMORA_WINDOWS_PREFIX=
    rm -rf "$work/curl"
    cmake -S "$work/src/curl" -B "$work/curl" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/windows-toolchain.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$work/stage/curl" -DBUILD_SHARED_LIBS=ON -DBUILD_CURL_EXE=OFF \
        -DBUILD_TESTING=OFF -DENABLE_MANUAL=OFF -DHTTP_ONLY=ON -DCURL_USE_OPENSSL=ON -DCURL_WINDOWS_SSPI=ON \
        -DUSE_WIN32_IDN=ON -DUSE_LIBIDN2=OFF -DUSE_ZLIB=OFF -DCURL_USE_LIBPSL=OFF -DCURL_USE_LIBSSH2=OFF \
        -DCURL_DISABLE_ALTSVC=ON -DCURL_DISABLE_HSTS=ON
    ninja -C "$work/curl" install
    mkdir -p "$kit/lib/cmake"
    cp -r "$work/stage/curl/include/curl" "$kit/include/"
    cp "$work/stage/curl/lib/libcurl.dll.a" "$kit/lib/"
    cp -r "$work/stage/curl/lib/cmake/CURL" "$kit/lib/cmake/"
    cp "$work/stage/curl/bin/libcurl.dll" "$kit/bin/"
    cp "$work/src/curl/COPYING" "$kit/licenses/curl.txt"
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
