"""The completion of the tools, by pressing keys in real shells.

    completion_test.py SCRIPTS BIN...

SCRIPTS is the folder of the completion, BIN a folder with tools.
"""

import functools
import os
import re
import subprocess
import sys
import tempfile
import unittest

from shells import Bash, BashThatBreaksNoWordAtEqualsSigns, BashWithItsCompletion, Zsh

SCRIPTS = sys.argv.pop(1)
os.environ["PATH"] = ":".join([*sys.argv[1:], os.environ["PATH"]])

HOSTS = ["media1", "media2.example.org"]
FILES = ["$(touch executed)", "a'b", "new\nline", "plain", "two words.jsonl"]
FOLDER = "a folder"
COMMANDS = ["ixfs-prepare", "ixfsctl", "ixfsctl status", "ixfsctl clean", "ixfsctl explain"]
ROW = re.compile(r"^  (?:(-\w),)?(--[\w-]+)(?: ([A-Z]+))?(?:  |$)", re.MULTILINE)


@functools.lru_cache(None)
def run(command):
    return subprocess.run(
        command.split(), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False
    ).stdout


def rows_of_help(command):
    """Short name if any, name and type of each option."""
    rows = ROW.findall(run(command + " --help"))
    assert rows, command
    return rows


def words_of_choice(command, option):
    """Those that the tool names when it refuses another."""
    return re.search(r"not in {(.*)}", run(f"{command} {option} other"))[1].split(",")


class Completion:
    """For any shell; `type` is its class."""

    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.folder = os.path.join(cls.scratch.name, "folder")
        os.makedirs(os.path.join(cls.folder, FOLDER))
        for name in FILES:
            with open(os.path.join(cls.folder, name), "w", encoding="utf-8"):
                pass
        cls.shell = cls.type(SCRIPTS, cls.folder, cls.scratch.name, HOSTS + cls.refused_hosts)

    @classmethod
    def tearDownClass(cls):
        cls.shell.close()
        cls.scratch.cleanup()

    refused_hosts = []

    def assert_offers(self, line, words):
        self.assertEqual(sorted(self.shell.offers(line)), sorted(words), line)

    def assert_becomes(self, line, completed):
        self.assertEqual(self.shell.line_after(line + "\t"), completed)

    def test_offers_every_option_of_the_help_and_no_other(self):
        for command in COMMANDS:
            names = [name for row in rows_of_help(command) for name in row[:2] if name]
            self.assertIn("--help", names)
            if command == "ixfsctl explain":
                names.append("-")
            self.assert_offers(command + " -", names)

    def values_of(self, command, option, type_name):
        if type_name == "FILE":
            return FILES + [FOLDER]
        if type_name == "NAME":
            return HOSTS
        if type_name in ("KIND", "FORMAT"):
            return words_of_choice(command, option)
        return []

    def test_offers_the_values_of_every_option(self):
        options = [(command, *row) for command in COMMANDS for row in rows_of_help(command)]
        types = {row[3] for row in options}
        self.assertLess({"FILE", "NAME", "KIND", "FORMAT", "NUMBER", "PATH"}, types)
        for command, _, name, type_name in options:
            if type_name:
                values = self.values_of(command, name, type_name)
                self.assert_offers(f"{command} {name} ", values)
                if type_name != "FILE":
                    self.assert_offers(f"{command} {name}=", values)

    def test_offers_an_option_once(self):
        for command in COMMANDS:
            for _, name, type_name in rows_of_help(command):
                line = f"{command} {name} {'x ' if type_name else ''}"
                (self.assertIn if name == "--disk" else self.assertNotIn)(
                    name, self.shell.offers(line + name)
                )

    def test_offers_no_option_that_another_excludes(self):
        for line in (
            "ixfs-prepare --creds-stdin --mount-cred",
            "ixfs-prepare --creds-stdin --unmount-cred",
            "ixfs-prepare --mount-cred-file x --creds",
            "ixfs-prepare --unmount-cred-file=x --creds",
            "ixfs-prepare --remove-view --fr",
            "ixfs-prepare --remove-view --dis",
            "ixfs-prepare --from list --rem",
            "ixfsctl status --json --open",
            "ixfsctl status --openmetrics --js",
        ):
            self.assert_offers(line, [])

    def test_offers_other_options_after_values_of_any_form(self):
        for given in (
            "--json",
            "--port 1",
            "--port=1",
            "--disk '[store] a: b=c/d.vmdk.desc'",
            r"--disk \[store\]\ a",
            "--from a:b",
            "--from=a=b",
            ">out",
            "2> errors",
        ):
            line = f"ixfs-prepare {given} --quie"
            self.assert_becomes(line, line + "t ")

    def test_offers_nothing_where_the_tool_takes_nothing(self):
        for line in (
            "ixfs-prepare -- -",
            "ixfs-prepare -- ",
            "ixfs-prepare p",
            "ixfs-prepare --json=",
            "ixfs-prepare --unknown",
            "ixfsctl unknown -x",
            "ixfsctl status --vers",
            "ixfsctl status cl",
            "ixfsctl -- st",
            "ixfs-loopback mount -f",
        ):
            self.assert_offers(line, [])

    def test_completes_subcommands(self):
        self.assert_offers("ixfsctl ", ["status", "clean", "explain"])
        self.assert_becomes("ixfsctl st", "ixfsctl status ")
        self.assert_offers("ixfs-loopback ", ["mount", "umount"])

    def test_completes_statuses(self):
        words = self.shell.offers("ixfsctl explain ")
        self.assertEqual({"-", "29", "EC_HELPER_FAILED"} - set(words), set())
        self.assert_becomes("ixfsctl explain EC_HE", "ixfsctl explain EC_HELPER_FAILED ")
        self.assert_becomes("ixfsctl explain -- EC_HE", "ixfsctl explain -- EC_HELPER_FAILED ")
        for word in words:
            if word != "-":
                self.assertTrue(run(f"ixfsctl explain {word}").startswith("status:"), word)

    def test_completes_the_words_of_the_stand_in_in_their_order(self):
        line = "ixfs-loopback mount "
        for words in (["-server", "x"], ["-port", "1"], ["-timeout", "1"], ["-cred", "x"]):
            expected = words[:1] if words[0] != "-timeout" else ["-timeout", "-cred"]
            self.assert_offers(line + "-", expected)
            line += " ".join(words) + " "
        self.assert_becomes(line, line + r"a\ folder/")
        self.assert_offers("ixfs-loopback umount -", ["-f"] + self.help_of_subcommand)
        self.assert_offers("ixfs-loopback umount -f -", ["-server"])
        self.assert_offers("ixfs-loopback -", ["--help"])

    help_of_subcommand = []

    def test_quotes_names_of_files(self):
        for line, completed in (
            ("--from tw", r"--from two\ words.jsonl "),
            ("--from=tw", r"--from=two\ words.jsonl "),
            ('--from "tw', '--from "two words.jsonl" '),
            ("--disks-from 'tw", "--disks-from 'two words.jsonl' "),
            ("--from a\\'", r"--from a\'b "),
            (r"--from \$", r"--from \$\(touch\ executed\) "),
            (r"--from=\$", r"--from=\$\(touch\ executed\) "),
            ("--from '$", "--from '$(touch executed)' "),
            ("--creds-stdin <tw", r"--creds-stdin <two\ words.jsonl "),
            ("--creds-stdin < tw", r"--creds-stdin < two\ words.jsonl "),
        ):
            self.assert_becomes("ixfs-prepare " + line, "ixfs-prepare " + completed)

    def test_runs_nothing_of_what_it_completes(self):
        for line in (
            "ixfs-prepare --from ",
            r"ixfs-prepare --from \$",
            "ixfs-prepare --from '$(touch executed)' --",
            "ixfs-prepare --from=$(touch executed) --",
            "ixfs-prepare --server $(touch executed)",
            "ixfs-prepare --server `touch executed` --",
            "ixfs-prepare --schedule=$(touch executed)",
            "ixfs-prepare --x[$(touch executed)]",
            "ixfs-prepare --x[$(touch executed)]=",
            "ixfs-prepare --x[$(touch executed)] --",
            "ixfsctl $(touch executed) --",
        ):
            for keys in ("\t", "\x18a"):
                self.shell.line_after(line + keys)
        self.assertFalse(os.path.exists(os.path.join(self.folder, "executed")))


class InBash(Completion, unittest.TestCase):
    type = Bash
    def test_completes_before_the_rest_of_a_word(self):
        back = "\x02"
        self.assert_becomes("ixfs-prepare --quiX" + back, "ixfs-prepare --quietX")

    def test_completes_values_where_words_do_not_break_at_equals_signs(self):
        shell = BashThatBreaksNoWordAtEqualsSigns(SCRIPTS, self.folder, self.scratch.name, HOSTS)
        self.addCleanup(shell.close)
        for given, completed in (("f", "full "), ("'f", "'full' "), ('"f', '"full" ')):
            line = "ixfs-prepare --schedule="
            self.assertEqual(shell.line_after(line + given + "\t"), line + completed)

    refused_hosts = ["-x", "a=b", "$(touch${IFS}executed)"]


class InBashWithItsCompletion(Completion, unittest.TestCase):
    type = BashWithItsCompletion

    def test_completes_behind_sudo(self):
        self.assert_becomes("sudo ixfsctl st", "sudo ixfsctl status ")
        self.assert_becomes("sudo ixfs-prepare --schedule=f", "sudo ixfs-prepare --schedule=full ")


class InZsh(Completion, unittest.TestCase):
    type = Zsh


if __name__ == "__main__":
    del sys.argv[1:]
    unittest.main()
