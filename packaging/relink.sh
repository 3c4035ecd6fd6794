#!/bin/sh
# Links the bridge again, with another version of Qt or GLib.
#
#   relink.sh QT-PREFIX PROGRAM
#
# QT-PREFIX is the folder of a static Qt @qt_wanted@ with Core and Network, configured with the options in
# build-qt.txt. pkg-config finds GLib and PCRE2; set PKG_CONFIG_PATH to use others.
set -eu
if [ $# -ne 2 ]; then
    echo "usage: relink.sh QT-PREFIX PROGRAM" >&2
    exit 2
fi
qt=$1
folder=$(dirname "$0")
exec ${CXX:-c++} -fno-lto -static-libstdc++ -static-libgcc -Wl,--gc-sections \
    -o "$2" "$folder/bridge.o" "$folder/tls_get_addr.ld" \
    -L"$qt/lib" @qt_libraries@ \
    "$(pkg-config --variable=libdir glib-2.0)/libglib-2.0.a" \
    "$(pkg-config --variable=libdir libpcre2-8)/libpcre2-8.a" \
    -lm -lpthread -ldl
