# What tools/build-qt does for Qt 6. Sourced, not run.

build_tools=(g++=g++ cmake=cmake ninja-build=ninja perl=perl)
compile_time="10 to 15 minutes on two cores"
qt_licences=(LICENSES/LGPL-3.0-only.txt LICENSES/GPL-3.0-only.txt)
code_licences+=(
    LICENSES/Unicode-{3.0,DFS-2016}.txt
    src/3rdparty/blake2/COPYING src/corelib/tools/LICENSE.siphash
    src/corelib/kernel/QEVENTDISPATCHER_CF_LICENSE.txt)

unused_features+=(androiddeployqt brotli macdeployqt qmake securetransport ssl)
options+=(-pch -no-libb2 -no-libproxy -no-zstd "${unused_features[@]/#/-no-feature-}" -cmake-generator Ninja --)
if [ "$(uname)" = Darwin ]; then
    # The oldest macOS is the one that this release of Qt chooses.
    options+=("-DCMAKE_OSX_ARCHITECTURES=x86_64;arm64")
else
    options+=(-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++)
fi

configure_qt() {
    local map="-ffile-prefix-map=$work/build=. -ffile-prefix-map=$source=."
    mkdir "$work/build"
    cd "$work/build"
    "$source/configure" "${options[@]}" "-DCMAKE_C_FLAGS=$map" "-DCMAKE_CXX_FLAGS=$map"
}

compile_qt() {
    # With exec, ninja is the process that build-qt waits for, so the compilers have ended when build-qt
    # does.
    exec ninja -C "$work/build" -j "$(getconf _NPROCESSORS_ONLN)"
}

# Ninja prints "[3/500]" at the start of each line about a file.
file_counter() {
    sed -n 's|^\[\([0-9]*\)/\([0-9]*\)\].*|\1 of \2 files|p' "$work/log" | tail -n 1
}

# Qt's plug-ins would be linked into each program.
install_qt() {
    local prefix=$work/staging/usr/local/qt-static
    DESTDIR=$work/staging cmake --install "$work/build"
    rm -r "$prefix/plugins" "$prefix"/lib/cmake/Qt6Network/*Plugin*
}
