# Functions that ./demo, ./test, .ci/run and the tools share: installing missing packages, building.
# Sourced, not run.

say() {
    printf '\n== %s\n' "$*"
}

die() {
    printf '%s\n' "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# install_missing PACKAGE[=COMMAND]...: installs the Debian packages that are missing. If COMMAND is
# given, the package is skipped when the command exists, wherever it came from.
install_missing() {
    if [ "$(uname)" = Darwin ]; then
        require_on_macos
        return
    fi
    local missing=() entry package command
    for entry in "$@"; do
        package=${entry%%=*}
        command=${entry#"$package"}
        command=${command#=}
        if [ -n "$command" ]; then
            command -v "$command" >/dev/null || missing+=("$package")
        else
            dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' \
                || missing+=("$package")
        fi
    done
    if [ "${#missing[@]}" -eq 0 ]; then
        return
    fi
    command -v apt-get >/dev/null || die "Please install the equivalents of these Debian packages: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        die "These packages are missing. As root, run: apt-get install --no-install-recommends ${missing[*]}"
    fi
    say "Installing Debian packages (about 900 MB on a bare machine): ${missing[*]}"
    { as_root apt-get update -q && as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "${missing[@]}"; } \
        || die "The packages could not be installed. Check the network connection and run this again."
}

require_on_macos() {
    local tool
    local complete=true
    for tool in cmake ninja node npm "${TESTBED_PYTHON:-missing}"; do
        command -v "$tool" >/dev/null || complete=false
    done
    if ! $complete || [ -z "${CMAKE_PREFIX_PATH:-}" ] || [ -z "${TESSARON_CSL_DIR:-}" ]; then
        die "Please install Qt 5.15 or 6, CMake, ninja, Node and a Python 3 with lxml and python-docx, and set CMAKE_PREFIX_PATH to Qt's folder, TESTBED_PYTHON to that Python, and TESSARON_CSL_DIR to a folder that contains the CSL project's \"styles\" and \"locales\"."
    fi
}

build_packages=(g++=g++ cmake=cmake make=make ninja-build=ninja pkg-config=pkg-config qtbase5-dev
    libglib2.0-dev)
testbed_packages=(nodejs=node npm=npm citation-style-language-styles
    citation-style-language-locales python3-lxml python3-docx)
benchmark_packages=(libcurl4-openssl-dev nlohmann-json3-dev libbenchmark-dev curl=curl)

# configure [CMAKE-OPTION...]: configures the Release build in build/.
configure() {
    say "Configuring build/"
    [ ! -e build ] || [ -w build ] || die "build/ is not writable: it belongs to another user. Remove it, or run this as its owner."
    # A folder that was configured earlier keeps its generator.
    [ -f build/CMakeCache.txt ] || set -- -G Ninja "$@"
    cmake -S . -B build "$@"
}

# build [CMAKE-BUILD-OPTION...]: builds in build/.
build() {
    say "Building in build/"
    cmake --build build --parallel "$(getconf _NPROCESSORS_ONLN)" "$@"
}

# Installs the test bed's libraries in the versions in the lock file. Does nothing if the lock file has
# not changed.
install_node_modules() {
    local folder=testbed
    if ! cmp -s "$folder/package-lock.json" "$folder/node_modules/.installed-lock.json"; then
        say "Fetching the test bed's libraries from npm"
        (cd "$folder" && npm ci --no-audit --no-fund --fetch-retries=1 --fetch-retry-mintimeout=1000) \
            || die "The test bed's libraries could not be fetched from npm. Check the network connection and run this again."
        cp "$folder/package-lock.json" "$folder/node_modules/.installed-lock.json"
    fi
}
