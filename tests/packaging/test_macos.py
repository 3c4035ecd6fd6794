"""The build for macOS, as far as it can be tested on another system: the build is generated and read,
and the sources for macOS are compiled against stand-ins for the declarations that they use."""

import json
import os
import platform
import re
import subprocess
import unittest
from pathlib import Path

from support import CMAKE, PRODUCT, QT_MAJOR, QT_OPTIONS, SOURCE, Case, configure, run, skip

HERE = Path(__file__).resolve().parent
TOOLCHAIN = f"-DCMAKE_TOOLCHAIN_FILE={HERE / 'macos_toolchain.cmake'}"
STAND_IN = SOURCE / "tests" / "service" / "macos_standin"


def ask_for_model(build):
    """Asks CMake to describe the build that it generates, in a form that is the same for all generators."""
    query = build / ".cmake" / "api" / "v1" / "query" / "codemodel-v2"
    query.parent.mkdir(parents=True)
    query.touch()


class Model:
    def __init__(self, build):
        replies = build / ".cmake" / "api" / "v1" / "reply"
        targets = [json.loads(path.read_text()) for path in replies.glob("target-*.json")]
        self.targets = {target["name"]: target for target in targets}

    def sources(self):
        return {
            source["path"]
            for target in self.targets.values()
            for source in target.get("sources", [])
            if "compileGroupIndex" in source
        }

    def flags(self, target):
        return " ".join(
            fragment["fragment"]
            for group in self.targets[target]["compileGroups"]
            for fragment in group["compileCommandFragments"]
        )

    def linked(self, target):
        return " ".join(
            fragment["fragment"] for fragment in self.targets[target]["link"]["commandFragments"]
        )


class GeneratedBuildTest(Case):
    def generate(self, *options):
        build = self.temporary_folder()
        ask_for_model(build)
        configure(SOURCE, build, "-DBUILD_TESTING=OFF", *options)
        return Model(build)

    def test_chooses_files_of_this_system(self):
        files = self.generate().sources()
        self.assertIn("service/DesktopApplication_linux.cpp", files)
        self.assertIn("apiclient/ProcessorPin_linux.cpp", files)
        self.assertFalse([name for name in files if name.endswith("_mac.cpp")])

    def test_builds_for_one_architecture(self):
        for architecture, other in (("arm64", "x86_64"), ("x86_64", "arm64")):
            model = self.generate(TOOLCHAIN, f"-DCMAKE_OSX_ARCHITECTURES={architecture}")
            flags = model.flags("tessaron-word-bridge")
            self.assertIn(f"-arch {architecture}", flags)
            self.assertNotIn(other, flags)

    def test_chooses_files_of_macos(self):
        files = self.generate(TOOLCHAIN).sources()
        self.assertIn("service/DesktopApplication_mac.cpp", files)
        self.assertIn("apiclient/ProcessorPin_mac.cpp", files)
        self.assertFalse([name for name in files if name.endswith("_linux.cpp")])
        self.assertNotIn("service/DesktopEntry.cpp", files)

    def test_links_framework_and_not_glib(self):
        linked = self.generate(TOOLCHAIN).linked("tessaron-word-bridge")
        self.assertIn("-framework CoreServices", linked)
        self.assertNotIn("glib", linked)

    def test_sets_oldest_system(self):
        for options, version in ((), "10.15"), (("-DCMAKE_OSX_DEPLOYMENT_TARGET=12.0",), "12.0"):
            model = self.generate(TOOLCHAIN, *options)
            for target in ("apiclient", "service", "frontend", "tessaron-word-bridge"):
                self.assertIn(f"-mmacosx-version-min={version}", model.flags(target), target)

    def test_refuses_unknown_system(self):
        with self.assertRaisesRegex(AssertionError, "Tessaron Desktop is not implemented on Haiku"):
            configure(SOURCE, self.temporary_folder(), "-DCMAKE_SYSTEM_NAME=Haiku")


class PresetTest(Case):
    def tree(self):
        """Links to the files of the product, and presets that treat this system as a Mac."""
        folder = self.temporary_folder()
        for name in PRODUCT:
            (folder / name).symlink_to(SOURCE / name)
        presets = (SOURCE / "CMakePresets.json").read_text()
        here = presets.replace('"Darwin"', f'"{platform.system()}"')
        self.assertNotEqual(presets, here)
        (folder / "CMakePresets.json").write_text(here)
        return folder

    def names(self, folder, kind):
        return re.findall(r'^ +"([^"]+)"', run(CMAKE, f"--list-presets={kind}", cwd=folder), re.M)

    def test_offers_presets_only_on_mac(self):
        for kind in ("configure", "build", "test"):
            here = self.names(SOURCE, kind)
            self.assertIn("release", here)
            self.assertEqual(self.names(self.tree(), kind), here + ["macos", "macos-universal"])

    def test_universal_preset_builds_for_both_architectures(self):
        self.assertArchitectures("macos-universal", ["arm64", "x86_64"])

    def test_default_preset_builds_for_host(self):
        self.assertArchitectures("macos", [])

    def assertArchitectures(self, preset, architectures):
        tree, build = self.tree(), self.temporary_folder()
        ask_for_model(build)
        run(
            CMAKE, "--preset", preset, "-B", build, "-DBUILD_TESTING=OFF", TOOLCHAIN,
            *QT_OPTIONS, "-G", os.environ["GENERATOR"], cwd=tree,
        )  # fmt: skip
        flags = Model(build).flags("tessaron-word-bridge")
        self.assertEqual(re.findall(r"-arch (\S+)", flags), architectures)
        self.assertIn("-DNDEBUG", flags)


class SourcesTest(Case):
    """Compiles the sources for macOS with this system's compiler, with warnings as errors."""

    def compile(self, source):
        qt = [f"-isystem{folder}" for folder in os.environ["QT_HEADERS"].split(":")]
        return subprocess.run(
            [os.environ["CXX"], "-std=c++17", "-fPIC", "-fsyntax-only", "-Wall", "-Wextra",
             "-Wpedantic", "-Wshadow", "-Wconversion", "-Wno-sign-conversion", "-Werror",
             *qt, f"-I{SOURCE}", f"-I{STAND_IN}", str(source)],
            stderr=subprocess.PIPE, encoding="utf-8",
        )  # fmt: skip

    def test_sources_compile_without_warnings(self):
        sources = sorted(SOURCE.glob("*/*_mac.cpp"))
        self.assertGreaterEqual(len(sources), 2)
        for source in sources:
            self.assertEqual(self.compile(source).stderr, "", source)

    def test_silences_deprecations_in_one_place(self):
        text = (SOURCE / "service" / "DesktopApplication_mac.cpp").read_text()
        self.assertEqual(text.count("#pragma GCC diagnostic ignored"), 1)
        unsilenced = self.temporary_folder() / "unsilenced.cpp"
        unsilenced.write_text(re.sub("^#pragma GCC diagnostic .*$", "", text, flags=re.M))
        errors = self.compile(unsilenced).stderr
        for call in ("FSPathMakeRef", "LSFindApplicationForInfo", "LSOpenApplication"):
            self.assertRegex(errors, f"{call}.* is deprecated")


if __name__ == "__main__":
    if platform.system() == "Darwin":
        skip("on a Mac, the real build tests this.")
    if QT_MAJOR != "5":
        skip("the packaged Qt 6 cannot be found by a build for another system.")
    unittest.main()
