"""check_hardening sees each protection that a file lacks, and nothing wrong in one that has all.

    hardening_test.py PROGRAM_OR_LIBRARY...

The files given are those that must have all.
"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).with_name("check_hardening")
PROTECTED = ["-O2", "-U_FORTIFY_SOURCE", "-D_FORTIFY_SOURCE=2", "-fstack-protector-strong",
             "-fstack-clash-protection", "-fcf-protection", "-fPIE", "-pie",
             "-Wl,-z,relro,-z,now,-z,noexecstack"]
SOURCE = r"""
#include <stdio.h>
static int shown(const char* text)
{
    char name[64];
    char large[65536];
    snprintf(name, sizeof name, "%s.", text);
    snprintf(large, sizeof large, "%s!", name);
    return puts(large);
}
int (*const table[])(const char*) = {shown};
int main(int argc, char* argv[]) { return table[argc > 5](argv[0]) < 0; }
"""


class CheckHardening(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)

    def lacks_of(self, *options):
        """Returns what the check says of a program that is built with more options."""
        program = self.folder / "program"
        subprocess.run(["gcc", *PROTECTED, *options, "-xc", "-", "-o", program],
                       input=SOURCE, text=True, check=True)
        run = subprocess.run([CHECK, program], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(run.returncode, 1 if run.stdout else 0)
        return run.stdout.splitlines()

    def expect_only(self, lack, *options):
        lacks = self.lacks_of(*options)
        self.assertEqual(len(lacks), 1, lacks)
        self.assertIn(lack, lacks[0])

    def test_a_protected_program_lacks_nothing(self):
        self.assertEqual(self.lacks_of(), [])

    def test_sees_each_protection_that_is_missing(self):
        for lack, *options in [
                ("(PIE)", "-fno-pie", "-no-pie"),
                ("(RELRO)", "-Wl,-z,norelro"),
                ("(BIND_NOW)", "-Wl,-z,lazy"),
                ("a stack without code", "-Wl,-z,execstack"),
                ("stack protection", "-fno-stack-protector"),
                ("(_FORTIFY_SOURCE)", "-U_FORTIFY_SOURCE"),
                ("(control-flow protection)", "-fcf-protection=none"),
                ("(stack clash protection)", "-fno-stack-clash-protection")]:
            with self.subTest(lack):
                self.expect_only(lack, *options)

    def test_sees_a_source_that_was_compiled_without_one(self):
        bare = self.folder / "bare.o"
        subprocess.run(["gcc", *PROTECTED[:3], "-g1", "-fPIE", "-c", "-xc", "-", "-o", bare],
                       input="int unprotected(void) { return 1; }", text=True, check=True)
        lacks = self.lacks_of("-xnone", bare)
        for option in ["-fstack-protector-strong", "-fstack-clash-protection", "-fcf-protection"]:
            self.assertTrue(any(f"lacks {option}" in lack for lack in lacks), lacks)

    def test_the_files_given_lack_nothing(self):
        run = subprocess.run([CHECK, *FILES], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual((run.returncode, run.stdout), (0, ""))


if __name__ == "__main__":
    FILES = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
