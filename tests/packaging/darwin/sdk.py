"""Assembles what is needed to compile for macOS: an SDK folder like that of Xcode, and stubs of Qt.

The C headers, the symbols of libSystem and the sources of libc++ come from the Zig toolchain, which
npm installs. For the framework there is a header and a stub library with the three functions that the
bridge calls. For Qt there are this machine's headers, and stub libraries with the symbols of its Qt.
"""

import json
import os
import re
import shutil
import subprocess
from pathlib import Path

from support import SOURCE, run

HERE = Path(__file__).resolve().parent
ARCHITECTURES = ["arm64", "x86_64"]
FRAMEWORK = {
    "_FSPathMakeRef",
    "_LSFindApplicationForInfo",
    "_LSOpenApplication",
    "___CFConstantStringClassReference",
}


class Missing(Exception):
    """Something that the test needs is not available. The text says what, and what to do."""


def locked(folder=HERE):
    """Returns the name and the version of the npm package that the lock file names."""
    packages = json.loads((folder / "package-lock.json").read_text())["packages"]
    ((path, package),) = [entry for entry in packages.items() if entry[0]]
    return path.removeprefix("node_modules/"), package["version"]


def install_zig(folder, source=HERE):
    """Installs the package that the lock file in `source` names, unless it is installed. Returns its
    folder."""
    name, version = locked(source)
    package = folder / "node_modules" / name
    if installed_version(package) != version:
        if not shutil.which("npm"):
            raise Missing("npm is not installed. Install it, on Debian with: apt-get install npm")
        folder.mkdir(parents=True, exist_ok=True)
        for file in ("package.json", "package-lock.json", ".npmrc"):
            shutil.copy(source / file, folder)
        done = subprocess.run(
            ["npm", "ci", "--no-audit", "--no-fund", "--ignore-scripts",
             "--fetch-retries=1", "--fetch-retry-mintimeout=1000"],
            cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8",
        )  # fmt: skip
        if done.returncode != 0:
            raise Missing(f"npm could not install {name}. {npm_hint(done.stdout)}\n{done.stdout}")
    found = installed_version(package)
    if found != version:
        raise Missing(
            f"{package} has version {found}, and package-lock.json names {version}. "
            f"Remove {folder} and run the test again."
        )
    return package


def npm_hint(output):
    hints = {
        "EINTEGRITY": "Its content differs from what package-lock.json names: do not use it.",
        "EBADPLATFORM": "It is made for Linux on x86_64: run the test on such a machine.",
    }
    for code, hint in hints.items():
        if code in output:
            return hint
    return "Is the network reachable? Run the test again when it is."


def installed_version(package):
    try:
        return json.loads((package / "package.json").read_text())["version"]
    except (OSError, ValueError, KeyError, TypeError):
        return None


def llvm_folder(clang):
    """Returns the folder with LLVM's programs of the same version as `clang`."""
    if not shutil.which(clang):
        raise Missing("clang++ is not installed. On Debian: apt-get install clang lld llvm")
    linker = Path(run(clang, "-print-prog-name=ld64.lld").strip())
    if not linker.is_absolute() or not linker.exists():
        raise Missing("clang's linker for macOS is not installed. On Debian: apt-get install lld")
    tools = ["ar", "ranlib", "install-name-tool", "lipo", "nm", "objdump"]
    absent = [tool for tool in tools if not (linker.parent / f"llvm-{tool}").exists()]
    if absent:
        raise Missing(
            f"LLVM's {', '.join(absent)} cannot be found in {linker.parent}. "
            "On Debian: apt-get install llvm"
        )
    return linker.parent


def symbols_of_tbd(path):
    """Returns the symbols that a stub library lists for macOS, on any architecture."""
    text = path.read_text()
    lists = re.findall(r"symbols: +\[(.*?)\]", text, re.S)
    return {name.strip(" '\n") for names in lists for name in names.split(",")}


def write_tbd(path, install_name, symbols):
    targets = ", ".join(f"{architecture}-macos" for architecture in ARCHITECTURES)
    quoted = ",\n    ".join(f"'{name}'" for name in sorted(symbols))
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(
        f"--- !tapi-tbd\ntbd-version: 4\ntargets: [ {targets} ]\ninstall-name: '{install_name}'\n"
        f"exports:\n  - targets: [ {targets} ]\n    symbols: [ {quoted} ]\n...\n"
    )
    return symbols


def libcxx_symbols(zig, llvm, cache):
    """Lets Zig build libc++ from its sources and returns what it exports."""
    cache.mkdir(parents=True, exist_ok=True)
    program = cache / "empty.cpp"
    program.write_text("int main() {}\n")
    run(
        zig / "zig", "c++", "-target", "aarch64-macos.11.0-none", "-o", cache / "empty", program,
        env={**os.environ, "ZIG_GLOBAL_CACHE_DIR": str(cache), "ZIG_LOCAL_CACHE_DIR": str(cache)},
    )  # fmt: skip
    found = set()
    for name in ("libc++.a", "libc++abi.a"):
        archives = list(cache.rglob(name))
        assert archives, f"Zig built no {name}"
        for line in run(llvm / "llvm-nm", "-m", *archives).splitlines():
            match = re.search(r"\) (?:weak )?(?:private )?external (?:\[.*?\] )?(\S+)", line)
            if match and "undefined" not in line:
                found.add(match[1])
    return found


def make_sdk(zig, folder, architecture, libcxx):
    """Assembles an SDK for one architecture in `folder`. Each architecture needs its own, because headers
    of the same name differ. Returns the symbols of each library."""
    shutil.rmtree(folder, ignore_errors=True)
    include = folder / "usr" / "include"
    library = folder / "usr" / "lib"
    machine = {"arm64": "aarch64"}.get(architecture, architecture)
    # The most specific folder comes last, because its headers replace the general ones.
    for part in ("any-macos-any", "any-macos.11-any", f"{machine}-macos.11-none"):
        shutil.copytree(zig / "lib" / "libc" / "include" / part, include, dirs_exist_ok=True)
    shutil.copytree(zig / "lib" / "libcxx" / "include", include / "c++" / "v1")
    library.mkdir()
    system = library / "libSystem.tbd"
    shutil.copy(zig / "lib" / "libc" / "darwin" / "libSystem.11.tbd", system)
    framework = folder / "System" / "Library" / "Frameworks" / "CoreServices.framework"
    (framework / "Headers").mkdir(parents=True)
    stand_in = SOURCE / "tests" / "service" / "macos_standin" / "CoreServices"
    shutil.copy(stand_in / "CoreServices.h", framework / "Headers")
    install_name = "/System/Library/Frameworks/CoreServices.framework/Versions/A/CoreServices"
    return {
        "libSystem": symbols_of_tbd(system),
        "libc++": write_tbd(library / "libc++.tbd", "/usr/lib/libc++.1.dylib", libcxx),
        "CoreServices": write_tbd(framework / "CoreServices.tbd", install_name, FRAMEWORK),
    }


def make_qt(folder, headers, libraries, moc, version):
    """Assembles a Qt for macOS in `folder`, to compile and link with. `libraries` are this machine's
    libraries by the name of the module. Returns the symbols of each."""
    if any(".so" not in Path(library).name for library in libraries.values()):
        raise Missing("The Qt of this build is static. Run the test in a build with shared libraries.")
    folder.mkdir(parents=True, exist_ok=True)
    major, minor = version.split(".")[:2]
    values = {"MAJOR": major, "MINOR": minor, "HEADERS": headers, "MOC": moc}
    config = (HERE / "QtConfig.cmake.in").read_text()
    for name, value in values.items():
        config = config.replace(f"@{name}@", str(value))
    (folder / f"Qt{major}Config.cmake").write_text(config)
    (folder / f"Qt{major}ConfigVersion.cmake").write_text(
        f'set(PACKAGE_VERSION {version})\nset(PACKAGE_VERSION_COMPATIBLE TRUE)\n'
    )
    symbols = {}
    for module, library in libraries.items():
        listed = run("nm", "-D", "--defined-only", "--format=posix", library)
        names = {"_" + line.split()[0].split("@")[0] for line in listed.splitlines()}
        symbols[module] = write_tbd(folder / f"{module}.tbd", f"@rpath/{module}", names)
    return symbols
