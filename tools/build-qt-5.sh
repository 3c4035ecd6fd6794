# What tools/build-qt does for Qt 5. Sourced, not run.

build_tools=(g++=g++ make=make perl=perl)
compile_time="5 to 10 minutes on two cores"
qt_licences=(LICENSE.LGPL3 LICENSE.GPL3)

# The plug-ins of bearer management would be linked in, and a system bus that never replies would block
# the bridge.
unused_features+=(bearermanagement big_codecs codecs commandlineparser ftp statemachine xmlstream)
options+=(-no-pch -no-iconv -nomake tools "${unused_features[@]/#/-no-feature-}")
if [ "$(uname)" = Darwin ]; then
    # With arm64 first, configure would miss the instruction sets of x86_64.
    options+=("QMAKE_APPLE_DEVICE_ARCHS=x86_64 arm64" QMAKE_MACOSX_DEPLOYMENT_TARGET=10.15)
    code_licences+=(src/corelib/kernel/QEVENTDISPATCHER_CF_LICENSE.txt)
fi

targets=(bootstrap moc rcc corelib network testlib)

configure_qt() {
    mkdir "$work/build"
    cd "$work/build"
    "$source/configure" "${options[@]}" \
        "QMAKE_CFLAGS+=-ffile-prefix-map=$work/build=. -ffile-prefix-map=$source=." \
        "QMAKE_CXXFLAGS+=-ffile-prefix-map=$work/build=. -ffile-prefix-map=$source=." \
        && make sub-src-qmake_all && count_objects >"$work/object_count"
}

compile_qt() {
    cd "$work/build/src"
    make "${targets[@]/#/sub-}"
}

# Prints the number of files that the makefiles of the targets compile.
count_objects() {
    local folder
    for folder in "$work"/build/src/{tools/{bootstrap,moc,rcc},3rdparty/pcre2,corelib,network,testlib}; do
        grep -hoE '\.obj/[^ ]+\.o' "$folder"/Makefile* 2>/dev/null | sort -u || true
    done | wc -l
}

file_counter() {
    printf '%d of %d files' "$(find "$work/build/src" -name '*.o' | wc -l)" "$(cat "$work/object_count")"
}

install_qt() {
    cd "$work/build"
    make INSTALL_ROOT="$work/staging" sub-qmake-qmake-aux-pro-install_subtargets install_mkspecs
    cd src
    make INSTALL_ROOT="$work/staging" $(printf 'sub-%s-install_subtargets ' "${targets[@]}")
}
