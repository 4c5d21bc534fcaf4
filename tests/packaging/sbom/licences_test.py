"""The generator's reading of Debian's copyright files."""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "packaging/sbom"))
from licences import Licences  # pylint: disable=wrong-import-position

HEADER = "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"


class LicencesTest(unittest.TestCase):
    def read(self, text):
        with tempfile.NamedTemporaryFile("w", encoding="utf-8") as file:
            file.write(text)
            file.flush()
            return Licences("pkg", pathlib.Path(file.name))

    def expression(self, *names):
        return self.read(HEADER + "".join(
            f"\nFiles: {number}\nCopyright: me\nLicense: {name}\n"
            for number, name in enumerate(names))).expression

    def test_names_are_those_of_spdx(self):
        self.assertEqual(self.expression("Expat"), "MIT")
        self.assertEqual(self.expression("GPL-2+"), "GPL-2.0-or-later")

    def test_all_files_count_once_each(self):
        self.assertEqual(self.expression("Expat", "ISC", "Expat"), "ISC AND MIT")

    def test_and_binds_more_tightly_than_or(self):
        self.assertEqual(self.expression("Expat or ISC and Zlib"), "((ISC AND Zlib) OR MIT)")

    def test_and_behind_a_comma_binds_less(self):
        self.assertEqual(self.expression("Expat or ISC, and Zlib"), "(ISC OR MIT) AND Zlib")

    def test_a_name_of_the_packages_own_comes_with_its_text(self):
        found = self.read(HEADER + "\nFiles: *\nCopyright: me\nLicense: mine+\n"
                          "\nLicense: mine+\n Do what\n .\n you like.\n")
        self.assertEqual(found.expression, "LicenseRef-pkg-mine-")
        self.assertEqual(found.texts,
                         {"LicenseRef-pkg-mine-": ("mine+", "Do what\n\nyou like.")})

    def test_of_another_form_nothing_is_said(self):
        self.assertEqual(self.read("This is free software.\n").expression, "NOASSERTION")


if __name__ == "__main__":
    unittest.main()
