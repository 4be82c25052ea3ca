#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The packages that CPack makes: laid out in a clean root, the program does its main job from there, and all that
belongs to it stands where a host looks for it."""

import gzip
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from install_tree import BUILT_IN_REPORT, COMMAND, IMAGE, NEWER, catalogue, report
from judging import environment, find_tool, intel_hex_bytes, main, program, run, s_record_bytes
from test_layout import BANNER

SOURCE = Path(os.environ["TARNWICK_SOURCE"]).resolve()
BUILD = Path(os.environ["TARNWICK_BUILD"]).resolve()
TIMEOUT_SECONDS = 200
SOME_DAY = "1700000000"

CONVERSION = (
    "-pN4A,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3 --dwarf-addr-size=4 blink.hex blink.tmf "
    "-oelf blink.elf -os19 blink.s19"
).split()
MANUALS = {"man1/tarnwick.1"} | {f"man5/{page.stem}" for page in (SOURCE / "docs" / "formats").glob("*.5.md")}


def packed(folder, umask=0o022):
    """The archive and the Debian package, made in the folder."""
    command = [os.environ["CPACK_PROGRAM"], "--config", str(BUILD / "CPackConfig.cmake"), "-B", str(folder)]
    if os.environ.get("TARNWICK_CONFIG"):
        command += ["-C", os.environ["TARNWICK_CONFIG"]]
    if not shutil.which("dpkg-deb"):
        command += ["-G", "TGZ"]
    variables = {**environment(folder), "SOURCE_DATE_EPOCH": SOME_DAY}
    outcome = subprocess.run(
        command,
        env=variables,
        umask=umask,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        timeout=TIMEOUT_SECONDS,
        check=False,
    )
    if outcome.returncode != 0:
        raise AssertionError(f"{' '.join(command)}\n{outcome.stdout.decode(errors='replace')}")
    return next(folder.glob("*.tar.gz")), next(folder.glob("*.deb"), None)


def contents(path):
    """The bytes of a file, unpacked where it is compressed."""
    data = path.read_bytes()
    return gzip.decompress(data) if path.suffix == ".gz" else data


class Packed:
    """What holds for both packages. A test case for each says where things are."""

    maxDiff = None
    made = None  # (folder, archive, Debian package), made once

    @classmethod
    def setUpClass(cls):
        if Packed.made is None:
            folder = Path(tempfile.mkdtemp(prefix="packages-")).resolve()
            unittest.addModuleCleanup(shutil.rmtree, folder, ignore_errors=True)
            Packed.made = (folder, *packed(folder))
        cls.scratch, cls.archive, cls.debian = Packed.made
        cls.root = cls.scratch / cls.__name__
        cls.root.mkdir()
        cls.unpack()

    def files(self):
        return [path for path in sorted(self.root.rglob("*")) if path.is_file() and not path.is_symlink()]

    def here(self):
        """A fresh folder to run from."""
        folder = Path(tempfile.mkdtemp(prefix="here-", dir=self.scratch))
        (folder / "one.hex").write_text(IMAGE)
        return folder

    def told(self, started):
        outcome = run([str(started), *COMMAND], self.here())
        self.assertEqual(outcome.returncode, 0)
        return outcome.stderr.decode()

    def test_main_job(self):
        installed = self.here() / "installed"
        shutil.copytree(self.documents / "samples" / "blink", installed)
        outcome = run([str(self.started), *CONVERSION], installed)
        self.assertEqual((outcome.returncode, outcome.stdout, outcome.stderr), (0, b"", b""))
        image = intel_hex_bytes((installed / "blink.hex").read_text())
        self.assertEqual(s_record_bytes((installed / "blink.s19").read_text()), image)
        # The ELF file is judged elsewhere; here it only has to be that of the program that was built.
        built = self.here() / "built"
        shutil.copytree(SOURCE / "samples" / "blink", built)
        self.assertEqual(run([program(), *CONVERSION], built).returncode, 0)
        self.assertEqual((installed / "blink.elf").read_bytes(), (built / "blink.elf").read_bytes())

    def test_version_banner(self):
        outcome = run([str(self.started), "--ver"], self.here())
        self.assertEqual((outcome.returncode, outcome.stdout), (0, BANNER))

    def test_catalogue_takes_effect(self):
        self.assertEqual(self.told(self.started), BUILT_IN_REPORT)
        self.assertEqual([path.name for path in self.data.iterdir()], ["README.md"])
        path = self.data / NEWER
        path.write_text(catalogue("packaged"))
        self.addCleanup(path.unlink)
        self.assertEqual(self.told(self.started), report("packaged"))
        link = self.here() / "tarnwick"
        link.symlink_to(self.started)
        self.assertEqual(self.told(link), report("packaged"))

    def test_manual_pages(self):
        pages = {str(path.relative_to(self.share / "man")) for path in (self.share / "man").rglob("*.[15]*")}
        self.assertEqual({page.removesuffix(".gz") for page in pages}, MANUALS)
        for page in pages:
            name = page.split("/")[1].split(".")[0]
            self.assertIn(name.encode(), contents(self.share / "man" / page).replace(b"\\-", b"-"))

    def test_manual_pages_are_found(self):
        man = find_tool("man")
        for page in MANUALS:
            section, name = page[3], Path(page).stem
            outcome = run([man, "-M", str(self.share / "man"), "-w", section, name], self.scratch)
            where = outcome.stdout.decode().strip().removesuffix(".gz")
            self.assertEqual(where, str(self.share / "man" / page), outcome.stderr)

    def test_completions(self):
        loaded = self.share / "bash-completion" / "completions" / "tarnwick"
        # `complete -p` fails where nothing was registered.
        outcome = run([find_tool("bash"), "--norc", "-c", f". '{loaded}' && complete -p tarnwick"], self.scratch)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertTrue((self.share / self.zsh / "_tarnwick").read_text().startswith("#compdef tarnwick"))
        fish = (self.share / "fish" / "vendor_completions.d" / "tarnwick.fish").read_text()
        self.assertIn("complete -c tarnwick", fish)

    def test_documents(self):
        for name in [self.licence, "messages.md", "cookbook.md", "contrib/compare-dumps"]:
            self.assertTrue((self.documents / name).is_file(), name)
        self.assertTrue(os.access(self.documents / "contrib" / "compare-dumps", os.X_OK))

    def test_no_path_of_the_build(self):
        for path in self.files():
            data = contents(path)
            if b"__asan_init" in data:
                continue  # the sanitizers name sources in their reports; such a program is not given to people
            for folder in (SOURCE, BUILD, Path.home() if Path.home() != Path("/") else SOURCE):
                self.assertNotIn(f"{folder}/".encode(), data, path)

    def test_program_is_stripped(self):
        sections = run([find_tool("readelf"), "-S", "-W", str(self.started)], self.scratch).stdout.decode()
        self.assertIn(" .text ", sections)
        self.assertNotIn(" .debug_info ", sections)
        self.assertNotIn(" .symtab ", sections)

    def test_links_stay_within(self):
        for path in self.root.rglob("*"):
            if path.is_symlink():
                self.assertFalse(os.path.isabs(os.readlink(path)), path)
                self.assertTrue(path.resolve().is_relative_to(self.root), path)
                self.assertTrue(path.exists(), path)

    def test_everyone_may_read(self):
        for path in self.root.rglob("*"):
            if not path.is_symlink():
                mode = path.stat().st_mode & 0o7777
                expected = 0o755 if path.is_dir() or os.access(path, os.X_OK) else 0o644
                self.assertEqual(mode, expected, path)

    def test_find_package(self):
        folder = self.here()
        (folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(user LANGUAGES NONE)\nfind_package(tarnwick 2.46 REQUIRED)\n"
            "get_target_property(program tarnwick::tarnwick IMPORTED_LOCATION)\n"
            'message(STATUS "program: ${program}")\n'
        )
        command = [os.environ["CMAKE_PROGRAM"], "-S", ".", "-B", "b", f"-DCMAKE_PREFIX_PATH={self.share.parent}"]
        outcome = run(command, folder)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertIn(f"-- program: {self.share.parent}/bin/tarnwick\n".encode(), outcome.stdout)


class Archive(Packed, unittest.TestCase):
    """The archive: one tree that may lie anywhere."""

    licence = "LICENSE"
    zsh = "zsh/site-functions"

    @classmethod
    def unpack(cls):
        shutil.unpack_archive(cls.archive, cls.root)
        (cls.prefix,) = cls.root.iterdir()
        cls.started = cls.prefix / "bin" / "tarnwick"
        cls.data = cls.prefix / "kor" / "dat"
        cls.share = cls.prefix / "share"
        cls.documents = cls.prefix / "docs"

    def test_one_folder_named_for_the_version(self):
        self.assertEqual(self.prefix.name, self.archive.name.removesuffix(".tar.gz"))
        self.assertRegex(self.prefix.name, r"^tarnwick-2\.46-[a-z]+-\w+$")

    def test_again_the_same(self):
        # Another folder, a later time, another umask.
        folder = self.scratch / "again"
        folder.mkdir()
        archive, debian = packed(folder, umask=0o077)
        self.assertEqual(archive.read_bytes(), self.archive.read_bytes())
        # The umask shows in the mode of a member of the Debian package that nobody unpacks, but in nothing that is.
        for part in ["--ctrl-tarfile", "--fsys-tarfile"] if debian else []:
            before, after = (run(["dpkg-deb", part, str(path)], folder).stdout for path in (self.debian, debian))
            self.assertEqual(before, after, part)


class Debian(Packed, unittest.TestCase):
    """The Debian package: the version directory in /usr/lib, the rest where Debian has it."""

    licence = "copyright"
    zsh = "zsh/vendor-completions"

    @classmethod
    def unpack(cls):
        if not cls.debian:
            raise unittest.SkipTest("not installed: dpkg-deb")
        subprocess.run(["dpkg-deb", "-x", str(cls.debian), str(cls.root)], check=True, timeout=TIMEOUT_SECONDS)
        cls.started = cls.root / "usr" / "bin" / "tarnwick"
        cls.data = cls.root / "usr" / "lib" / "tarnwick" / "kor" / "dat"
        cls.share = cls.root / "usr" / "share"
        cls.documents = cls.share / "doc" / "tarnwick"

    def field(self, name):
        return run(["dpkg-deb", "-f", str(self.debian), name], self.scratch).stdout.decode().strip()

    def test_fields(self):
        self.assertEqual((self.field("Package"), self.field("Version")), ("tarnwick", "2.46"))
        self.assertIn("libc6", self.field("Depends"))
        self.assertIn("libstdc++6", self.field("Depends"))
        self.assertRegex(self.field("Maintainer"), r"^[^<>]+ <[^<>@]+@[^<>@]+>$")
        self.assertEqual(self.debian.name, f"tarnwick_2.46_{self.field('Architecture')}.deb")

    def test_nothing_outside_usr(self):
        self.assertEqual([path.name for path in self.root.iterdir()], ["usr"])
        self.assertEqual({path.name for path in (self.root / "usr").iterdir()}, {"bin", "lib", "share"})
        self.assertEqual([path.name for path in (self.root / "usr" / "bin").iterdir()], ["tarnwick"])
        self.assertEqual([path.name for path in (self.root / "usr" / "lib").iterdir()], ["tarnwick"])

    def test_version_directory_keeps_its_documents(self):
        self.assertTrue((self.root / "usr" / "lib" / "tarnwick" / "docs" / "messages.md").is_file())

    def test_dpkg_installs_and_removes(self):
        dpkg = find_tool("dpkg")
        root = self.scratch / "dpkg"
        (root / "var" / "lib" / "dpkg" / "updates").mkdir(parents=True)
        (root / "var" / "lib" / "dpkg" / "info").mkdir()
        (root / "var" / "lib" / "dpkg" / "status").touch()
        # The libraries are those of the host: the root's own dpkg knows none. Documents must arrive, whatever the
        # host's own dpkg leaves out.
        forced = ["--force-not-root", "--force-depends", "--force-bad-path", "--path-include=*", "--log=/dev/null"]
        installed = run([dpkg, f"--root={root}", *forced, "--install", str(self.debian)], self.scratch)
        self.assertEqual(installed.returncode, 0, installed.stderr)
        unpacked = {str(path.relative_to(self.root)) for path in self.files()}
        there = {str(path.relative_to(root)) for path in (root / "usr").rglob("*") if path.is_file()}
        self.assertLessEqual(unpacked, there)
        self.assertEqual(self.told(root / "usr" / "bin" / "tarnwick"), BUILT_IN_REPORT)
        removed = run([dpkg, f"--root={root}", *forced, "--remove", "tarnwick"], self.scratch)
        self.assertEqual(removed.returncode, 0, removed.stderr)
        self.assertFalse((root / "usr").exists())


if __name__ == "__main__":
    main()
