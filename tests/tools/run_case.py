#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs one case: a folder with inputs, a command line and everything that must come of it.

    run_case.py [--update] [--keep] PROGRAM CASE_DIR
    run_case.py --self-test

The case runs in a fresh copy of its folder, in a clean environment. Its standard streams, its exit status and every file
that it leaves behind are compared with the expectations in CASE_DIR/expect. tests/cases/README.md describes a case folder.

Exit status: 0 the case passed, 1 it failed, 2 the case folder itself is wrong, 77 a tool that the case needs is missing.
"""

import argparse
import contextlib
import difflib
import fnmatch
import io
import os
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

PASSED, FAILED, BAD_CASE, SKIPPED = 0, 1, 2, 77

TIMEOUT_SECONDS = 60
MAX_DIFF_LINES = 200
SCRATCH_MARK = b"@SCRATCH@"
PROGRAM_NAME = "tarnwick"

# What of a case folder is not copied as an input.
CONTROL_NAMES = {"cmd", "about", "env", "ignore", "needs", "expect"}
EXPECT_NAMES = {"stdout", "stderr", "status", "files", "absent"}

SYSTEM_PATH = ["/usr/local/bin", "/usr/bin", "/bin"]

# Reach the case from outside when they are set: they steer the sanitizers' run time and not the program.
SANITIZER_VARIABLES = ["ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"]


class BadCase(Exception):
    """The case folder is not one; nothing was run, or nothing can be said about the run."""


@dataclass
class Outcome:
    status: int
    stdout: bytes
    stderr: bytes
    files: dict  # relative path -> bytes, or None where there is no regular file to read
    timed_out: bool


# --- reading a case folder ---------------------------------------------------------------------------------------------


def read_bytes(path, default=b""):
    return path.read_bytes() if path.is_file() else default


def read_list(path):
    """The lines of an optional file, without blank ones and comments."""
    lines = read_bytes(path).decode().splitlines()
    return [line.strip() for line in lines if line.strip() and not line.startswith("#")]


def read_environment(path):
    variables = {}
    for line in read_list(path):
        name, equals, value = line.partition("=")
        if not equals:
            raise BadCase(f"env: not of the form NAME=VALUE: {line}")
        variables[name] = value
    return variables


def read_status(path):
    text = read_bytes(path, b"0").decode().strip()
    if not re.fullmatch(r"\d+", text):
        raise BadCase(f"expect/status: not a number: {text!r}")
    return int(text)


def check_shape(case):
    if not (case / "cmd").is_file():
        raise BadCase("no file `cmd`")
    if PROGRAM_NAME not in (case / "cmd").read_text():
        raise BadCase(f"`cmd` never runs {PROGRAM_NAME}")
    expect = case / "expect"
    if expect.is_dir():
        for entry in sorted(expect.iterdir()):
            if entry.name not in EXPECT_NAMES:
                raise BadCase(f"expect/{entry.name}: no such kind of expectation")


def files_below(folder):
    """Relative path -> content of everything below a folder that is not a folder itself."""
    found = {}
    for parent, folders, names in os.walk(folder):
        links = [name for name in folders if os.path.islink(os.path.join(parent, name))]
        for name in names + links:
            path = Path(parent, name)
            relative = path.relative_to(folder).as_posix()
            try:
                found[relative] = path.read_bytes() if path.is_file() else None
            except OSError:
                found[relative] = None
    return found


def inputs_of(case):
    entries = [entry for entry in case.iterdir() if entry.name not in CONTROL_NAMES]
    found = {}
    for entry in entries:
        if entry.is_dir() and not entry.is_symlink():
            for path, content in files_below(entry).items():
                found[f"{entry.name}/{path}"] = content
        else:
            found[entry.name] = read_bytes(entry, None)
    return entries, found


# --- running -----------------------------------------------------------------------------------------------------------


def search_path(program):
    """The program's own folder, the system's, then the rest of the caller's."""
    caller = [entry for entry in os.environ.get("PATH", "").split(os.pathsep) if entry]
    return os.pathsep.join(dict.fromkeys([str(program.parent)] + SYSTEM_PATH + caller))


def missing_tools(case, path):
    return [tool for tool in read_list(case / "needs") if shutil.which(tool, path=path) is None]


def environment(case, path, scratch):
    variables = {
        "PATH": path,
        "HOME": str(scratch),
        "LC_ALL": "C",
        "TZ": "UTC",
        "SOURCE_DATE_EPOCH": "1700000000",
    }
    variables.update({name: os.environ[name] for name in SANITIZER_VARIABLES if name in os.environ})
    for name, value in read_environment(case / "env").items():
        variables[name] = value.replace(SCRATCH_MARK.decode(), str(scratch))
    return variables


def run(case, path, scratch):
    # The text is handed over, not the file's name, so that the shell's own messages do not name the checkout.
    process = subprocess.Popen(
        ["sh", "-c", (case / "cmd").read_text()],
        cwd=scratch,
        env=environment(case, path, scratch),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        start_new_session=True,
    )
    timed_out = False
    try:
        stdout, stderr = process.communicate(timeout=TIMEOUT_SECONDS)
    except subprocess.TimeoutExpired:
        timed_out = True
        os.killpg(process.pid, signal.SIGKILL)
        stdout, stderr = process.communicate()
    # A shell killed by a signal counts as it would count for a calling shell.
    status = process.returncode if process.returncode >= 0 else 128 - process.returncode
    return Outcome(status, stdout, stderr, files_below(scratch), timed_out)


def copy_inputs(entries, scratch):
    for entry in entries:
        if entry.is_dir() and not entry.is_symlink():
            shutil.copytree(entry, scratch / entry.name, symlinks=True)
        else:
            shutil.copy2(entry, scratch / entry.name, follow_symlinks=False)


def remove_tree(folder):
    """Also where the case took away its own right to write."""
    for parent, _, _ in os.walk(folder):
        with contextlib.suppress(OSError):
            os.chmod(parent, stat.S_IRWXU)
    shutil.rmtree(folder, ignore_errors=True)


# --- comparing ---------------------------------------------------------------------------------------------------------


def is_text(content):
    try:
        text = content.decode()
    except UnicodeDecodeError:
        return False
    return not re.search(r"[\x00-\x08\x0b\x0e-\x1f\x7f]", text)


def text_lines(content):
    """Lines as a diff can print them: what cannot be seen is spelled out."""
    lines = []
    for line in content.decode().split("\n"):
        lines.append(line.replace("\r", "\\r").replace("\f", "\\f"))
    if lines[-1] == "":
        lines.pop()
    else:
        lines[-1] += "\\ (no newline at the end)"
    return lines


def hex_lines(content):
    lines = []
    for offset in range(0, len(content), 16):
        row = content[offset : offset + 16]
        letters = "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row)
        lines.append(f"{offset:08x}  {row.hex(' '):<47}  |{letters}|")
    return lines


def difference(name, expected, actual):
    lines_of = text_lines if is_text(expected) and is_text(actual) else hex_lines
    lines = list(
        difflib.unified_diff(lines_of(expected), lines_of(actual), f"expected {name}", f"actual {name}", lineterm="")
    )
    if len(lines) > MAX_DIFF_LINES:
        left_out = len(lines) - MAX_DIFF_LINES
        lines = lines[:MAX_DIFF_LINES] + [f"... {left_out} more lines of difference"]
    return "\n".join(lines)


def with_scratch(content, scratch):
    """An expectation with the mark replaced; in binary files the mark means nothing."""
    return content.replace(SCRATCH_MARK, os.fsencode(scratch)) if is_text(content) else content


def compare_files(case, inputs, actual, scratch):
    """Every file must be accounted for: those that were there, those that were made and those that went."""
    expected = files_below(case / "expect" / "files")
    absent = read_list(case / "expect" / "absent")
    ignored = read_list(case / "ignore")
    faults = []

    for path, content in sorted(expected.items()):
        if path not in actual:
            faults.append(f"{path}: was not made")
        elif actual[path] is None:
            faults.append(f"{path}: is no regular file that can be read")
        else:
            content = with_scratch(content, scratch)
            if actual[path] != content:
                faults.append(difference(path, content, actual[path]))

    for path in absent:
        if os.path.lexists(scratch / path):
            faults.append(f"{path}: must not exist")

    def accounted_for(path):
        return path in expected or path in absent or any(fnmatch.fnmatchcase(path, pattern) for pattern in ignored)

    for path in sorted(set(inputs) | set(actual)):
        if accounted_for(path):
            continue
        if path not in inputs:
            faults.append(f"{path}: was made and is not listed in expect/files")
        elif path not in actual:
            faults.append(f"{path}: is an input that is gone, and is not listed in expect/absent")
        elif actual[path] != inputs[path]:
            faults.append(f"{path}: is an input that was changed, and is not listed in expect/files")
    return faults


def compare(case, inputs, outcome, scratch):
    expect = case / "expect"
    faults = []
    if outcome.timed_out:
        faults.append(f"still running after {TIMEOUT_SECONDS} s")
    else:
        status = read_status(expect / "status")
        if outcome.status != status:
            faults.append(f"exit status is {outcome.status}, expected {status}")
    for name, actual in (("stdout", outcome.stdout), ("stderr", outcome.stderr)):
        expected = with_scratch(read_bytes(expect / name), scratch)
        if actual != expected:
            faults.append(difference(name, expected, actual))
    return faults + compare_files(case, inputs, outcome.files, scratch)


# --- rewriting the expectations ----------------------------------------------------------------------------------------


def write_or_remove(path, content):
    if content:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    else:
        path.unlink(missing_ok=True)


def update(case, inputs, outcome, scratch):
    def without_scratch(content):
        return content.replace(os.fsencode(scratch), SCRATCH_MARK) if is_text(content) else content

    expect = case / "expect"
    ignored = read_list(case / "ignore")
    write_or_remove(expect / "stdout", without_scratch(outcome.stdout))
    write_or_remove(expect / "stderr", without_scratch(outcome.stderr))
    write_or_remove(expect / "status", b"%d\n" % outcome.status if outcome.status else b"")

    absent = {path for path in read_list(expect / "absent") if not os.path.lexists(scratch / path)}
    absent |= set(inputs) - set(outcome.files)
    write_or_remove(expect / "absent", "".join(f"{path}\n" for path in sorted(absent)).encode())

    shutil.rmtree(expect / "files", ignore_errors=True)
    for path, content in outcome.files.items():
        if any(fnmatch.fnmatchcase(path, pattern) for pattern in ignored) or inputs.get(path) == content:
            continue
        if content is None:
            raise BadCase(f"{path}: is no regular file, so it cannot be an expectation")
        target = expect / "files" / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(without_scratch(content))


# --- the whole ---------------------------------------------------------------------------------------------------------


def run_case(program, case, rewrite=False, keep=False):
    check_shape(case)
    path = search_path(program)
    missing = missing_tools(case, path)
    if missing:
        print(f"{case.name}: skipped, needs {', '.join(missing)}")
        return SKIPPED

    entries, inputs = inputs_of(case)
    scratch = Path(tempfile.mkdtemp(prefix="case-")).resolve()
    try:
        copy_inputs(entries, scratch)
        outcome = run(case, path, scratch)
        if rewrite:
            if outcome.timed_out:
                raise BadCase(f"still running after {TIMEOUT_SECONDS} s; the expectations were left alone")
            update(case, inputs, outcome, scratch)
            print(f"{case.name}: expectations rewritten; review them before they are kept")
            return PASSED
        faults = compare(case, inputs, outcome, scratch)
    finally:
        if keep:
            print(f"{case.name}: scratch folder is {scratch}")
        else:
            remove_tree(scratch)

    for fault in faults:
        print(fault)
    print(f"{case.name}: {'failed' if faults else 'passed'}")
    return FAILED if faults else PASSED


def main(arguments):
    parser = argparse.ArgumentParser(description="Runs one case of tests/cases.")
    parser.add_argument("--update", action="store_true", help="rewrite the expectations, for review")
    parser.add_argument("--keep", action="store_true", help="leave the scratch folder behind")
    parser.add_argument("program", type=Path, metavar="PROGRAM")
    parser.add_argument("case", type=Path, metavar="CASE_DIR")
    options = parser.parse_args(arguments)
    program = options.program.absolute()
    case = options.case.resolve()
    try:
        if program.name != PROGRAM_NAME or not os.access(program, os.X_OK):
            raise BadCase(f"{program}: is not an executable of the name {PROGRAM_NAME}")
        return run_case(program, case, options.update, options.keep)
    except BadCase as fault:
        print(f"{case.name}: {fault}")
        return BAD_CASE


# --- self-test ---------------------------------------------------------------------------------------------------------


def self_test():
    """Runs small cases with a stand-in for the program: each kind of difference must be found, and nothing else."""
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        program = root / "bin" / PROGRAM_NAME
        program.parent.mkdir()
        program.write_text('#!/bin/sh\neval "$1"\n')  # the stand-in does what its argument says
        program.chmod(0o755)
        wrong = 0

        def make(name, files):
            case = root / name
            shutil.rmtree(case, ignore_errors=True)
            for path, content in files.items():
                (case / path).parent.mkdir(parents=True, exist_ok=True)
                (case / path).write_bytes(content if isinstance(content, bytes) else content.encode())
            return case

        def check(name, want, text, files, *switches):
            nonlocal wrong
            case = make(name, files) if files is not None else root / name
            printed = io.StringIO()
            with contextlib.redirect_stdout(printed):
                got = main([*switches, str(program), str(case)])
            if got != want or text not in printed.getvalue():
                wrong += 1
                print(f"self-test {name}: returned {got}, expected {want} and the text {text!r}; it printed:")
                print(printed.getvalue())

        def does(command):
            return f"tarnwick '{command}'\n"

        # What passes.
        check("quiet", PASSED, "", {"cmd": does(":")})
        check("streams", PASSED, "", {"cmd": does("echo a; echo b >&2"), "expect/stdout": "a\n", "expect/stderr": "b\n"})
        check("status", PASSED, "", {"cmd": does("exit 3"), "expect/status": "3\n"})
        check("last-status", PASSED, "", {"cmd": does("exit 3") + does("exit 0")})
        check("signal", PASSED, "", {"cmd": does("kill -9 $$"), "expect/status": "137\n", "expect/stderr": "Killed\n"})
        check("scratch", PASSED, "", {"cmd": does("pwd; echo $HOME"), "expect/stdout": "@SCRATCH@\n@SCRATCH@\n"})
        check("input", PASSED, "", {"cmd": does("cat in/x"), "in/x": "x\n", "expect/stdout": "x\n"})
        check("made", PASSED, "", {"cmd": does("mkdir d; printf y >d/y"), "expect/files/d/y": "y"})
        check("ignored", PASSED, "", {"cmd": does("echo y >y.log"), "ignore": "*.log\n"})
        check("removed", PASSED, "", {"cmd": does("rm x"), "x": "x", "expect/absent": "x\n"})
        check("changed", PASSED, "", {"cmd": does("printf y >x"), "x": "x", "expect/files/x": "y"})
        check("locked", PASSED, "", {"cmd": does("chmod a-w ."), "x": "x"})
        clean = "HOME LC_ALL PATH PWD SOURCE_DATE_EPOCH TZ V".split()
        listing = "env | cut -d= -f1 | grep -v -e _OPTIONS -e ^_ -e OLDPWD | sort"
        check(
            "environment",
            PASSED,
            "",
            {"cmd": does(listing + "; echo $V"), "env": "V=1\n", "expect/stdout": "\n".join(clean) + "\n1\n"},
        )
        check("about", PASSED, "", {"cmd": does("ls"), "about": "", "needs": "sh\n", "x": "", "expect/stdout": "x\n"})

        # What fails.
        check("wrong-stdout", FAILED, "-a\n+b", {"cmd": does("echo b"), "expect/stdout": "a\n"})
        check("no-newline", FAILED, "no newline", {"cmd": does("printf a"), "expect/stdout": "a\n"})
        check("carriage-return", FAILED, "+a\\r", {"cmd": does(r'printf "a\r\n"'), "expect/stdout": "a\n"})
        check("loud-stdout", FAILED, "+b", {"cmd": does("echo b")})
        check("loud-stderr", FAILED, "+b", {"cmd": does("echo b >&2")})
        check("wrong-status", FAILED, "exit status is 1, expected 0", {"cmd": does("exit 1")})
        check("unlisted", FAILED, "y: was made", {"cmd": does("echo y >y")})
        check("not-made", FAILED, "y: was not made", {"cmd": does(":"), "expect/files/y": "y"})
        check("wrong-bytes", FAILED, "+00000000  00 02", {"cmd": does(r'printf "\0\2" >y'), "expect/files/y": b"\0\1"})
        check("empty-not-made", FAILED, "y: was not made", {"cmd": does(":"), "expect/files/y": ""})
        check("input-gone", FAILED, "x: is an input that is gone", {"cmd": does("rm x"), "x": "x"})
        check("input-changed", FAILED, "x: is an input that was changed", {"cmd": does("echo y >x"), "x": "x"})
        check("present", FAILED, "y: must not exist", {"cmd": does("echo y >y"), "expect/absent": "y\n"})
        check("odd-file", FAILED, "y: is no regular file", {"cmd": does("mkfifo y"), "expect/files/y": ""})

        # What is not run, or is no case.
        check("needy", SKIPPED, "needs no-such-tool", {"cmd": does(":"), "needs": "sh\nno-such-tool\n"})
        check("no-cmd", BAD_CASE, "no file `cmd`", {"expect/stdout": ""})
        check("other-cmd", BAD_CASE, "never runs", {"cmd": "echo a\n"})
        check("typo", BAD_CASE, "expect/stdoud", {"cmd": does(":"), "expect/stdoud": ""})
        check("bad-status", BAD_CASE, "not a number", {"cmd": does(":"), "expect/status": "none\n"})
        check("bad-env", BAD_CASE, "NAME=VALUE", {"cmd": does(":"), "env": "V\n"})

        # Rewriting makes a failing case pass, and takes back what is no longer so.
        stale = {"expect/stdout": "old\n", "expect/files/old": "old", "expect/status": "9\n"}
        fresh = {"cmd": does("pwd >&2; rm x; printf y >y; echo z >z.log"), "x": "x", "ignore": "*.log\n"}
        check("rewritten", FAILED, "", fresh | stale)
        check("rewritten", PASSED, "review", None, "--update")
        check("rewritten", PASSED, "passed", None)

        # A run that does not end is ended.
        global TIMEOUT_SECONDS
        TIMEOUT_SECONDS = 1
        check("endless", FAILED, "still running after 1 s", {"cmd": does("sleep 100")})

    print("self-test: " + (f"{wrong} checks failed" if wrong else "passed"))
    return FAILED if wrong else PASSED


if __name__ == "__main__":
    sys.exit(self_test() if sys.argv[1:] == ["--self-test"] else main(sys.argv[1:]))
