#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Where cmake/Miniz.cmake finds the zip library, tried with a small project and a stand-in for the library.

    test_miniz_lookup.py ROOT

Nothing is fetched from a network: the archive lies in a local folder.
"""

import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

ROOT = Path(sys.argv.pop(1) if len(sys.argv) > 1 else ".").resolve()

PROJECT = """\
cmake_minimum_required(VERSION 3.25)
project(lookup LANGUAGES C)
list(APPEND CMAKE_MODULE_PATH "{root}/cmake")
# What this machine has installed is not looked for.
set(CMAKE_FIND_USE_CMAKE_SYSTEM_PATH OFF)
set(CMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH OFF)
set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
add_compile_options(-Wall -Wextra)
include(Miniz)
add_executable(ask ask.c)
target_link_libraries(ask PRIVATE tarn_miniz)
"""
ASK = '#include <miniz.h>\n#include <stdio.h>\nint main(void) { puts(miniz_origin()); return 0; }\n'
HEADER = "const char *miniz_origin(void);\nstatic int warned(int unused) { return 1; }\n"
SOURCE = '#include "miniz.h"\nconst char *miniz_origin(void) { int unused; return "%s"; }\n'

PACKAGE_CONFIG = """\
add_library(miniz::miniz STATIC IMPORTED)
set_target_properties(miniz::miniz PROPERTIES IMPORTED_LOCATION "@LIB@" INTERFACE_INCLUDE_DIRECTORIES "@INCLUDE@")
"""
PKG_CONFIG = """\
Name: miniz
Description: stand-in
Version: 1
Libs: -L@FOLDER@ -lminiz
Cflags: -I@INCLUDE@
"""


class Lookup(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.write("project/CMakeLists.txt", PROJECT.format(root=ROOT))
        self.write("project/ask.c", ASK)
        self.environment = {name: value for name, value in os.environ.items() if name in ("PATH", "TMPDIR")}
        self.environment.update(HOME=str(self.folder / "home"), LC_ALL="C")
        self.environment.update(PKG_CONFIG_LIBDIR=str(self.folder / "pkgconfig"))

    def write(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return path

    def sources(self, folder, origin):
        self.write(f"{folder}/miniz.h", HEADER)
        self.write(f"{folder}/miniz.c", SOURCE % origin)
        return self.folder / folder

    def installed(self, origin):
        """A compiled library and its header, in a folder below that of the headers."""
        sources = self.sources(f"{origin}/include/miniz", origin)
        library = self.folder / origin / "libminiz.a"
        for command in (["cc", "-w", "-c", "miniz.c"], ["ar", "rc", library, "miniz.o"]):
            subprocess.run(command, cwd=sources, check=True, env=self.environment)
        places = {"@LIB@": library, "@FOLDER@": library.parent, "@INCLUDE@": sources.parent}
        return lambda text: re.sub("@[A-Z]+@", lambda mark: str(places[mark.group()]), text)

    def cmake(self, *arguments):
        return subprocess.run(["cmake", *arguments], cwd=self.folder, env=self.environment, text=True, check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def configure(self, *options):
        return self.cmake("-G", "Ninja", "-S", "project", "-B", "build",
                          f"-DPKG_CONFIG_EXECUTABLE={shutil.which('pkg-config') or ''}", *options)

    def assert_origin(self, origin, *options):
        outcome = self.configure(*options)
        self.assertEqual(outcome.returncode, 0, outcome.stdout)
        outcome = self.cmake("--build", "build")
        self.assertEqual(outcome.returncode, 0, outcome.stdout)
        told = subprocess.run([self.folder / "build/ask"], check=True, stdout=subprocess.PIPE, text=True).stdout
        self.assertEqual(told, origin + "\n")

    def archive(self, origin):
        path = self.folder / "release.zip"
        with zipfile.ZipFile(path, "w") as archive:
            archive.writestr("miniz.h", HEADER)
            archive.writestr("miniz.c", SOURCE % origin)
        return path.as_uri(), hashlib.sha256(path.read_bytes()).hexdigest()

    def test_nothing(self):
        outcome = self.configure()
        self.assertNotEqual(outcome.returncode, 0)
        text = " ".join(outcome.stdout.split())
        for part in ("The zip library miniz is missing", "/home/.cache/tarnwick/miniz-10.0.3", "scripts/setup",
                     "FETCHCONTENT_SOURCE_DIR_MINIZ", "TARNWICK_MINIZ_SHA256"):
            self.assertIn(part, text)

    def test_the_cache(self):
        self.sources("home/.cache/tarnwick/miniz-10.0.3", "home")
        self.assert_origin("home")
        self.environment["XDG_CACHE_HOME"] = str(self.folder / "xdg")
        self.sources("xdg/tarnwick/miniz-10.0.3", "xdg")
        self.assert_origin("xdg")  # the build folder does not hold on to the other one
        self.environment["TARNWICK_CACHE"] = str(self.folder / "own")
        self.sources("own/miniz-10.0.3", "own")
        self.assert_origin("own")

    def test_a_named_folder(self):
        self.sources("home/.cache/tarnwick/miniz-10.0.3", "home")
        named = self.sources("named", "named")
        self.assert_origin("named", f"-DFETCHCONTENT_SOURCE_DIR_MINIZ={named}")
        self.assert_origin("named")
        (named / "miniz.c").unlink()
        outcome = self.configure()
        self.assertNotEqual(outcome.returncode, 0)
        self.assertIn("lack miniz.c", " ".join(outcome.stdout.split()))

    def test_an_installed_package(self):
        self.sources("home/.cache/tarnwick/miniz-10.0.3", "home")
        fill = self.installed("package")
        self.write("prefix/lib/cmake/miniz/miniz-config.cmake", fill(PACKAGE_CONFIG))
        self.assert_origin("package", f"-DCMAKE_PREFIX_PATH={self.folder / 'prefix'}")

    @unittest.skipUnless(shutil.which("pkg-config"), "not installed: pkg-config")
    def test_pkg_config(self):
        self.sources("home/.cache/tarnwick/miniz-10.0.3", "home")
        self.write("pkgconfig/miniz.pc", self.installed("pc")(PKG_CONFIG))
        self.assert_origin("pc")

    def test_the_archive(self):
        url, digest = self.archive("archive")
        self.assert_origin("archive", f"-DTARNWICK_MINIZ_URL={url}", f"-DTARNWICK_MINIZ_SHA256={digest}")

    def test_an_archive_with_another_hash(self):
        url, digest = self.archive("archive")
        digest = digest[1:] + digest[0]
        outcome = self.configure(f"-DTARNWICK_MINIZ_URL={url}", f"-DTARNWICK_MINIZ_SHA256={digest}")
        self.assertNotEqual(outcome.returncode, 0)
        self.assertIn("hash", outcome.stdout)


if __name__ == "__main__":
    unittest.main()
