"""Builds and runs the examples of the man pages, as a reader would, on a host with a media server
"media1", and compares what they print with what the pages show.

In a namespace of its own (tests/support/in_namespace), with ixfs-loopback as the mount helper and the
tools in the PATH. IXFS_LIBRARY is the library.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from man_pages import Display, Page

ROOT = pathlib.Path(__file__).resolve().parents[2]
MOUNTS = pathlib.Path("/usr/varnis/var/ixfs")
STORE = pathlib.Path("/usr/varnis/var/ixfs-loopback")
IMAGE = "backups/sample-client/allusers/full/1700000000"
STRICT = ["-Wall", "-Wextra", "-Werror"]
COMPILERS = {".c": ["cc", "-std=gnu11"], ".cpp": ["c++", "-std=c++17"]}
DEADLINE = 60  # seconds; only an example that fails runs that long

# What the examples find in their working directory.
FILES = {
    "mount.cred": "mount-word\n",
    "unmount.cred": "unmount-word\n",
    "credentials": "mount-word\nunmount-word\n",
    "machines.jsonl": json.dumps({"server": "media1", "backup_id": "sample-client_1700000000",
                                  "disks": [f"[nfs_ds] {IMAGE}/vm1/disk.vmdk.desc"]}) + "\n",
}


def matches(shown: str, printed: str) -> bool:
    """A line "..." stands for any number of lines."""
    pattern = "".join(r"(?:.*\n)*" if line == "..." else re.escape(line + "\n")
                      for line in shown.splitlines())
    return re.fullmatch(pattern, printed) is not None


class Reader:
    """Does what a page says, in a folder."""

    def __init__(self, folder: pathlib.Path, environment: dict[str, str]):
        self.folder = folder
        self.environment = environment

    def run(self, *command: str, fails: bool = False) -> str:
        errors = subprocess.STDOUT if fails else subprocess.PIPE
        done = subprocess.run(command, cwd=self.folder, env=self.environment, stdout=subprocess.PIPE,
                              stderr=errors, stdin=subprocess.DEVNULL, text=True, timeout=DEADLINE,
                              check=False)
        if (done.returncode != 0) != fails:
            raise AssertionError(f"exit status {done.returncode} of: {command}\n"
                                 f"{done.stdout}{done.stderr}")
        return done.stdout

    def shell(self, commands: str, fails: bool) -> str:
        return self.run("bash", "-euo", "pipefail", "-c", commands, fails=fails)

    def build(self, name: str) -> str:
        """Returns how to call the program."""
        source = pathlib.Path(name)
        flags = self.run("pkg-config", "--cflags", "--libs", "ixfs").split()
        self.run(*COMPILERS[source.suffix], name, *flags, "-o", source.stem)
        return f"./{source.stem}"

    def follow(self, displays: list[Display]) -> list[str]:
        """Returns what the page shows but is not so."""
        wrong = []
        printed = program = ""
        for display in displays:
            kind, _, name = display.subject.partition(" ")
            if kind == "file":
                (self.folder / name).write_text(display.text, encoding="ascii")
                program = self.build(name)
            elif kind.startswith("run"):
                printed = self.shell(display.text, fails=name == "fails")
                program = ""
            elif kind == "output":
                printed = self.run(program) if program else printed
                program = ""
                if not matches(display.text, printed):
                    wrong.append(f"it shows\n{display.text}but there is\n{printed}")
            elif kind != "none,":
                wrong.append(f"unknown kind of example: {display.subject}")
        return wrong + [f"nothing runs {program}"] * bool(program)


def setUpModule():
    subprocess.run([ROOT / "tests/support/make_sample_image", "--small", STORE / "media1"],
                   check=True, stdout=subprocess.DEVNULL)


class ReadersHost(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for name, text in FILES.items():
            (self.folder / name).write_text(text, encoding="ascii")
            (self.folder / name).chmod(0o600)
        library = pathlib.Path(os.environ["IXFS_LIBRARY"])
        (self.folder / "ixfs.pc").write_text(
            "Name: ixfs\nDescription: the library as it is built\nVersion: 0\n"
            f"Cflags: {' '.join(STRICT)} -I{ROOT}/include -I{ROOT}/framework\n"
            f"Libs: {library} -Wl,-rpath,{library.parent}\n", encoding="utf-8")
        self.reader = Reader(self.folder, os.environ | {"PKG_CONFIG_PATH": str(self.folder)})

    def tearDown(self):
        for what_is_left in (MOUNTS, STORE / ".control", STORE / "media1" / IMAGE / "_vmir"):
            shutil.rmtree(what_is_left, ignore_errors=True)


class ManExamples(ReadersHost):
    """A test for each page is added below."""


def add_page(file: pathlib.Path):
    def test(self):
        examples = [display for display in Page.read(file).displays() if display.kind == "Example"]
        self.assertEqual("\n".join(self.reader.follow(examples)), "")
    setattr(ManExamples, f"test_of_{re.sub('[^a-z0-9]', '_', file.name)}", test)


for source_file in (ROOT / "docs/man").glob("*.[1-9]"):
    add_page(source_file)


class Faults(ReadersHost):
    """Examples that are wrong are found."""

    def example(self, subject: str, text: str) -> Display:
        return Display("Example", subject, text)

    def test_of_a_program_that_does_not_build(self):
        for name, text in (("a.c", "int main(void) { int unused; return 0; }\n"),
                           ("a.cpp", "int main() { int unused; }\n")):
            with self.subTest(name), self.assertRaisesRegex(AssertionError, "unused variable"):
                self.reader.follow([self.example(f"file {name}", text)])

    def test_of_a_program_that_fails_or_is_not_run(self):
        source = self.example("file a.c", "int main(void) { return 1; }\n")
        with self.assertRaisesRegex(AssertionError, "exit status 1 of"):
            self.reader.follow([source, self.example("output", "")])
        self.assertEqual(self.reader.follow([source]), ["nothing runs ./a"])

    def test_of_commands(self):
        with self.assertRaisesRegex(AssertionError, "exit status 1 of"):
            self.reader.follow([self.example("run", "false | true\n")])
        with self.assertRaisesRegex(AssertionError, "exit status 0 of"):
            self.reader.follow([self.example("run, fails", "true\n")])

    def test_of_output(self):
        for shown in ("one\n", "one\nthree\n...\n", "one\ntwo\nthree\nfour\n"):
            with self.subTest(shown):
                found = self.reader.follow([self.example("run", "printf 'one\\ntwo\\nthree\\n'"),
                                            self.example("output", shown)])
                self.assertEqual(found, [f"it shows\n{shown}but there is\none\ntwo\nthree\n"])
        self.assertTrue(matches("one\n...\nthree\n...\n", "one\ntwo\nthree\n"))


if __name__ == "__main__":
    unittest.main()
