# SPDX-License-Identifier: MIT
"""What `cmake --install` lays out, and whether the program finds its toolchain from every place where it may stand."""

import os
import shutil
import subprocess

from install_tree import BUILT_IN_REPORT, COMMAND, IMAGE, NEWER, InstallTree, install, report
from judging import TIMEOUT_SECONDS, find_tool, main

BANNER = (
    b"\n"
    b"Product:\tZRT\n"
    b"Component:\ttarnwick\n"
    b"Version:\t2.46 \n"
    b"Build date:\tJan  4 2024\n"
    b"Release:\t\n"
    b"Build number:\t20240104201356\n"
    b"Copyright (c) 2026 The Tarnwick authors\n"
)

RUNNING_FROM = 'Application appears to be running from directory: "@/{}"'
NOT_IN_BIN = "ERROR - the application is not running from a 'bin' directory"
NO_FAMILY = "The 'kor' directory could not be found: \"@/{}\""
NOT_LOCATED = "Could not locate installation directory"


class Layout(InstallTree):
    def test_files(self):
        program = self.version / "bin" / "tarnwick"
        self.assertTrue(program.is_file() and os.access(program, os.X_OK))
        self.assertTrue((self.data / "README.md").is_file())
        self.assertTrue((self.version / "docs" / "LICENSE").is_file())
        # A catalogue would come before the program's own texts.
        self.assertEqual([path.name for path in self.data.iterdir() if path.suffix != ".md"], [])

    def test_version_banner(self):
        outcome = subprocess.run(
            [self.version / "bin" / "tarnwick", "--ver"],
            cwd=self.here,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )
        self.assertEqual((outcome.returncode, outcome.stdout, outcome.stderr), (0, BANNER, b""))

    def test_banner_ends_the_run(self):
        outcome = self.run_program("--ver", "missing.hex", "-onone")
        self.assertEqual((outcome.returncode, outcome.stdout.encode(), outcome.stderr), (0, BANNER, ""))

    def test_installed_tree_speaks_as_the_built_program(self):
        self.assertEqual(self.told(), BUILT_IN_REPORT)

    def test_second_installation_over_the_first(self):
        self.put(self.data, NEWER, "kept")
        install(self.version)
        self.assertEqual(self.told(), report("kept"))


class Places(InstallTree):
    """The program in other folders of the tree; a catalogue in the data folder tells whether it was found."""

    def setUp(self):
        super().setUp()
        self.put(self.data, NEWER, "found")

    def assert_found(self, folder, program=None):
        program = program or self.move(self.version / folder / "tarnwick")
        self.assertEqual(self.told(program=program), report("found"))
        # Nothing went wrong, so nothing but the place is traced, once.
        self.assertEqual(self.traced(program=program), [RUNNING_FROM.format(f"tools/v2/{folder}")])

    def test_bin(self):
        self.assert_found("bin")

    def test_bin_in_any_case(self):
        self.assert_found("BIN")

    def test_family_directory(self):
        self.assert_found("kor/bin")

    def test_package_directory(self):
        self.assert_found("kor-as/bin")

    def test_family_directories_in_any_case(self):
        # Beside "kor", which is looked for as it is spelt.
        self.assert_found("KOR/bin")

    def test_package_directory_in_any_case(self):
        self.assert_found("Kor-As/Bin")

    def test_family_directory_with_an_extension(self):
        self.assert_found("kor.2/bin")

    def test_directory_with_points_at_its_end(self):
        program = self.move(self.version / "bin.." / "tarnwick")
        self.assertEqual(self.told(program=program), report("found"))
        self.assertEqual(self.traced(program=program), [RUNNING_FROM.format("tools/v2/bin")])

    def test_symbolic_link_to_the_program(self):
        link = self.root / "usr" / "somewhere" / "reformat"
        link.parent.mkdir(parents=True)
        link.symlink_to(self.version / "bin" / "tarnwick")
        self.assert_found("bin", program=link)

    def test_symbolic_link_to_the_folder(self):
        (self.root / "current").symlink_to(self.version)
        self.assert_found("bin", program=self.root / "current" / "bin" / "tarnwick")

    def test_first_argument_does_not_count(self):
        outcome = subprocess.run(
            ["/elsewhere/bin/other", *COMMAND],
            executable=self.version / "bin" / "tarnwick",
            cwd=self.here,
            capture_output=True,
            text=True,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )
        self.assertEqual(outcome.stderr, report("found"))

    def test_program_that_was_copied_alone(self):
        program = self.root / "lone" / "bin" / "tarnwick"
        program.parent.mkdir(parents=True)
        shutil.copy2(self.version / "bin" / "tarnwick", program)
        self.assertEqual(self.told(program=program), BUILT_IN_REPORT)


class Failures(InstallTree):
    """The toolchain is not found. The look-up of catalogues asks for the family directory, and then for the version
    directory in its place; each asks where the program stands, and so does the comparison of what was found."""

    def test_not_in_bin(self):
        program = self.move(self.version / "sbin" / "tarnwick")
        self.put(self.data, NEWER, "not found")
        self.assertEqual(self.told(program=program), BUILT_IN_REPORT)
        once = [RUNNING_FROM.format("tools/v2/sbin"), NOT_IN_BIN]
        self.assertEqual(self.traced(program=program), once + once + [NOT_LOCATED])

    def test_below_bin(self):
        program = self.move(self.version / "bin" / "x64" / "tarnwick")
        once = [RUNNING_FROM.format("tools/v2/bin/x64"), NOT_IN_BIN]
        self.assertEqual(self.traced(program=program), once + once + [NOT_LOCATED])

    def test_no_family_directory(self):
        shutil.rmtree(self.version / "kor")
        self.assertEqual(self.told(), BUILT_IN_REPORT)
        once = [RUNNING_FROM.format("tools/v2/bin"), NO_FAMILY.format("tools/v2/kor")]
        self.assertEqual(self.traced(), once + once + [NOT_LOCATED])

    def test_family_directory_that_is_a_file(self):
        shutil.rmtree(self.version / "kor")
        (self.version / "kor").write_text("")
        once = [RUNNING_FROM.format("tools/v2/bin"), NO_FAMILY.format("tools/v2/kor")]
        self.assertEqual(self.traced(), once + once + [NOT_LOCATED])

    def test_family_directory_in_another_case_is_none(self):
        (self.version / "kor").rename(self.version / "KOR")
        if (self.version / "kor").exists():
            self.skipTest("names of files have no case here")
        once = [RUNNING_FROM.format("tools/v2/bin"), NO_FAMILY.format("tools/v2/kor")]
        self.assertEqual(self.traced(), once + once + [NOT_LOCATED])

    def test_climb_leaves_the_family_directory_behind(self):
        # The program's folder lies in a package directory that holds a "kor": only what stands above is searched.
        program = self.move(self.version / "kor-as" / "bin" / "tarnwick")
        (self.version / "kor").rename(self.version / "kor-as" / "kor")
        once = [RUNNING_FROM.format("tools/v2/kor-as/bin"), NO_FAMILY.format("tools/v2/kor")]
        self.assertEqual(self.traced(program=program), once + once + [NOT_LOCATED])

    def test_data_folder_beside_the_program(self):
        program = self.move(self.version / "sbin" / "tarnwick")
        self.put(self.version / "dat", NEWER, "beside")
        self.assertEqual(self.told(program=program), report("beside"))


class AtTheRoot(InstallTree):
    """The program in the topmost folders of a file system, which takes a file system of its own."""

    def setUp(self):
        super().setUp()
        self.top = self.root / "top"
        self.top.mkdir()
        self.copy_libraries()
        (self.top / "one.hex").write_text(IMAGE)

    def copy_libraries(self):
        listing = subprocess.run(
            [find_tool("ldd"), self.version / "bin" / "tarnwick"], capture_output=True, text=True, check=True
        )
        for path in [word for word in listing.stdout.split() if word.startswith("/")]:
            target = self.top / path.lstrip("/")
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(path, target)

    def inside(self, program, *arguments, processes=True):
        mount = "mkdir -p proc && mount --rbind /proc proc && " if processes else ""
        script = f'{mount}exec chroot . "$@"'
        command = [find_tool("unshare"), "--map-root-user", "--mount", "sh", "-c", script, "sh", program, *arguments]
        return subprocess.run(
            command,
            cwd=self.top,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )

    def traced_inside(self, program, processes=True):
        place = self.top / program.lstrip("/")
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(self.version / "bin" / "tarnwick", place)
        trial = self.inside(program, "--ver", processes=processes)
        if trial.returncode != 0:
            self.skipTest("the program cannot be run with a root of its own here: " + trial.stderr.strip()[:200])
        outcome = self.inside(program, "--zrdebug=on,out:trace.log", *COMMAND, processes=processes)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        lines = (self.top / "trace.log").read_text().splitlines()
        return outcome.stderr, [line.split("> ", 1)[1].strip() for line in lines if line.startswith("zrinstdir.cpp:")]

    def assert_not_found(self, program, *once, processes=True):
        told, traced = self.traced_inside(program, processes)
        self.assertEqual(told, BUILT_IN_REPORT)
        self.assertEqual(traced, [*once, *once, NOT_LOCATED])

    def test_version_directory_below_the_root(self):
        self.put(self.top / "v2" / "kor" / "dat", NEWER, "found")
        told, traced = self.traced_inside("/v2/bin/tarnwick")
        self.assertEqual(told, report("found"))
        self.assertEqual(traced, ['Application appears to be running from directory: "/v2/bin"'])

    def test_nothing_lies_below_the_root(self):
        self.put(self.top / "kor" / "dat", NEWER, "not found")
        self.assert_not_found(
            "/bin/tarnwick",
            'Application appears to be running from directory: "/bin"',
            "The 'kor' directory could not be found: \"\"",
        )

    def test_program_in_the_root(self):
        self.assert_not_found(
            "/tarnwick",
            'Application appears to be running from directory: ""',
            "ERROR - couldn't get a basename from the path: \"\"",
        )

    def test_program_that_cannot_tell_where_it_stands(self):
        self.put(self.top / "v2" / "kor" / "dat", NEWER, "not found")
        self.assert_not_found(
            "/v2/bin/tarnwick", "ERROR - couldn't get a path based on progname", processes=False
        )


if __name__ == "__main__":
    main()
