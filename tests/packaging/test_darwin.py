"""Compiles and links the whole project for macOS, on Linux.

The C library, the C++ library and the language are the real ones. Qt and Apple's framework are stubs,
and nothing is run. docs/macos.md explains what the test shows.
"""

import os
import platform
import re
import shutil
import stat
import subprocess
import sys
import unittest
from pathlib import Path

from support import BUILD, CMAKE, QT_MAJOR, SOURCE, WORK, Case, run, skip

sys.path.insert(0, str(Path(__file__).resolve().parent / "darwin"))
import sdk  # noqa: E402

HERE = Path(__file__).resolve().parent
TOOLCHAIN = BUILD / "darwin-toolchain"
oldest_system = {}  # by architecture
libraries = {}  # their symbols, by architecture and name
llvm = None


def set_up():
    """Makes the SDKs and the Qt to build with. Skips the test if that is not possible."""
    global llvm
    if (platform.system(), platform.machine()) != ("Linux", "x86_64"):
        skip("the toolchain is made for Linux on x86_64. On a Mac, run tools/try-on-mac.")
    try:
        llvm = sdk.llvm_folder("clang++")
        zig = sdk.install_zig(TOOLCHAIN)
        qt = sdk.make_qt(WORK / "qt", min(os.environ["QT_HEADERS"].split(":"), key=len),
            dict(pair.split("=") for pair in os.environ["QT_LIBRARIES"].split(":")),
            os.environ["QT_MOC"], os.environ["QT_VERSION"])  # fmt: skip
    except sdk.Missing as missing:
        skip(missing)
    libcxx = sdk.libcxx_symbols(zig, llvm, TOOLCHAIN / "cache")
    text = (SOURCE / "CMakeLists.txt").read_text()
    (oldest,) = re.findall(r"set\(CMAKE_OSX_DEPLOYMENT_TARGET ([0-9.]+) ", text)
    for architecture in sdk.ARCHITECTURES:
        own = sdk.make_sdk(zig, WORK / f"sdk-{architecture}", architecture, libcxx)
        libraries[architecture] = {**own, **qt}
        # There was no Mac with arm64 before 11.0.
        oldest_system[architecture] = {"arm64": "11.0"}.get(architecture, oldest)


def environment(architecture):
    return {**os.environ, "SDK": str(WORK / f"sdk-{architecture}"), "LLVM": str(llvm)}


def build(architecture):
    """Builds the project and its tests with warnings as errors. Returns the executables."""
    folder = WORK / architecture
    # A program that an earlier build left must not count as built.
    shutil.rmtree(folder, ignore_errors=True)
    run(
        CMAKE, "-S", SOURCE, "-B", folder, "-G", os.environ["GENERATOR"],
        f"-DCMAKE_TOOLCHAIN_FILE={HERE / 'darwin' / 'toolchain.cmake'}",
        f"-DCMAKE_OSX_ARCHITECTURES={architecture}", f"-DBRIDGE_QT={QT_MAJOR}", f"-DQt{QT_MAJOR}_DIR={WORK / 'qt'}",
        "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O0 -DNDEBUG", "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON",
        env=environment(architecture),
    )  # fmt: skip
    run(CMAKE, "--build", folder, "--parallel", os.cpu_count(), env=environment(architecture))
    return sorted(path for path in folder.rglob("*") if is_program(path))


def is_program(path):
    if "CMakeFiles" in path.parts or path.is_symlink() or not path.is_file():
        return False
    with open(path, "rb") as file:
        return path.stat().st_mode & stat.S_IXUSR and file.read(4) == b"\xcf\xfa\xed\xfe"


class BuildTest(Case):
    @classmethod
    def setUpClass(cls):
        cls.programs = {architecture: build(architecture) for architecture in sdk.ARCHITECTURES}

    def each(self):
        """Returns the architecture and path of each program. The callers start the subTest, because a subTest
        around a yield does not catch the assertions of the caller."""
        return [(architecture, program) for architecture, programs in self.programs.items() for program in programs]

    def bridge(self, architecture):
        return WORK / architecture / "tessaron-word-bridge"

    def test_builds_bridge_and_tests(self):
        for architecture, programs in self.programs.items():
            names = {program.name for program in programs}
            self.assertIn("tessaron-word-bridge", names)
            self.assertGreater(len([name for name in names if name.startswith("tst_")]), 5)

    def test_libraries_export_every_undefined_symbol(self):
        for architecture, program in self.each():
            with self.subTest(program=program.name, architecture=architecture):
                exported = set().union(*libraries[architecture].values())
                listed = run(llvm / "llvm-nm", "-m", "--undefined-only", program)
                used = set(re.findall(r"\(undefined\) (?:weak )?external (\S+)", listed))
                self.assertEqual(used - exported, set())
                self.assertGreater(len(used), 10)

    def test_bridge_uses_only_three_functions_of_framework(self):
        for architecture in sdk.ARCHITECTURES:
            listed = run(llvm / "llvm-nm", "-m", "--undefined-only", self.bridge(architecture))
            used = set(re.findall(r"external (\S+) \(from CoreServices\)", listed))
            self.assertEqual(used, sdk.FRAMEWORK)

    def test_bridge_loads_only_qt_and_system(self):
        for architecture in sdk.ARCHITECTURES:
            listed = run(
                llvm / "llvm-objdump", "--macho", "--dylibs-used", self.bridge(architecture)
            )
            loaded = re.findall(r"^\s+(\S+) \(comp", listed, re.M)
            self.assertIn("/usr/lib/libSystem.B.dylib", loaded)
            self.assertIn("@rpath/QtNetwork", loaded)
            for path in loaded:
                self.assertRegex(path, r"\A(/usr/lib/|/System/|@rpath/Qt(Core|Network)\Z)")

    def test_oldest_system_is_that_of_cmakelists(self):
        for architecture, program in self.each():
            with self.subTest(program=program.name, architecture=architecture):
                listed = run(llvm / "llvm-objdump", "--macho", "--private-headers", program)
                self.assertEqual(
                    re.findall(r"^ +(?:minos|version) (\d+\.\d+)$", listed, re.M),
                    [oldest_system[architecture]],
                )

    def test_architectures_join_into_one_file(self):
        universal = WORK / "universal"
        run(llvm / "llvm-lipo", "-create", "-output", universal,
            *[self.bridge(architecture) for architecture in sdk.ARCHITECTURES])  # fmt: skip
        archs = run(llvm / "llvm-lipo", "-archs", universal).split()
        self.assertEqual(sorted(archs), sorted(sdk.ARCHITECTURES))


class AvailabilityTest(Case):
    """The flags of the build reject functions that the oldest system does not have."""

    def compile(self, architecture, oldest, code):
        done = subprocess.run(
            [llvm / "clang++", f"--target={architecture}-apple-darwin", "-stdlib=libc++",
             "-D_LIBCPP_ABI_VERSION=1", "-D_LIBCPP_ABI_NAMESPACE=__1", "-std=c++17",
             "-isysroot", WORK / f"sdk-{architecture}", f"-mmacosx-version-min={oldest}",
             "-Wunguarded-availability", "-Werror", "-fsyntax-only", "-x", "c++", "-"],
            input=code, stderr=subprocess.PIPE, encoding="utf-8",
        )  # fmt: skip
        return done.stderr

    def rejected(self, architecture, oldest, code, message):
        self.assertIn(message, self.compile(architecture, oldest, code))

    def accepted(self, architecture, oldest, code):
        self.assertEqual(self.compile(architecture, oldest, code), "")

    def test_checks_version_of_c_function(self):
        code = "#include <pthread.h>\nvoid f() { pthread_jit_write_protect_np(1); }\n"
        message = "'pthread_jit_write_protect_np' is only available on macOS 11.0 or newer"
        self.rejected("x86_64", oldest_system["x86_64"], code, message)
        self.accepted("arm64", oldest_system["arm64"], code)

    def test_checks_version_of_library_class(self):
        code = '#include <filesystem>\nbool f() { return std::filesystem::exists("f"); }\n'
        message = "'exists' is unavailable: introduced in macOS 10.15"
        self.rejected("x86_64", "10.14", code, message)
        self.accepted("x86_64", oldest_system["x86_64"], code)

    def test_rejects_function_that_is_never_available(self):
        code = "#include <charconv>\nvoid f(char* p) { std::to_chars(p, p + 9, 1.5); }\n"
        for architecture, oldest in oldest_system.items():
            self.rejected(architecture, oldest, code, "'to_chars' is unavailable")

    def test_accepts_guarded_calls(self):
        declaration = "void g() __attribute__((availability(macos, introduced=12.0)));\n"
        for architecture, oldest in oldest_system.items():
            message = "'g' is only available on macOS 12.0 or newer"
            self.rejected(architecture, oldest, declaration + "void f() { g(); }\n", message)
            guard = "void f() { if (__builtin_available(macOS 12.0, *)) { g(); } }\n"
            self.accepted(architecture, oldest, declaration + guard)


if __name__ == "__main__":
    set_up()
    unittest.main()
