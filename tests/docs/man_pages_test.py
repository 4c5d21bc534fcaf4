"""The man pages: well-formed, in agreement with headers, tools and one another. The checks are seen to
find what is wrong in altered copies."""
import os
import pathlib
import subprocess
import unittest

import man_checks
import man_options
from man_pages import Page
from public_headers import Headers

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What depends on the host's own pages. Our references are checked here.
OF_THE_HOST = ("STYLE: referenced manual not found", "outdated mandoc.db")
FILES = sorted((ROOT / "docs/man").glob("*.[1-9]"))
PAGES = {file.name: Page.read(file) for file in FILES}
HEADERS = Headers.read(ROOT)
LINKS = pathlib.Path(os.environ["IXFS_MAN_LINKS"])
TOOLS = {name: os.environ[name.upper().replace("-", "_") + "_PROGRAM"]
         for name in ("ixfs-loopback", "ixfs-prepare", "ixfsctl")}
SUBCOMMANDS = ("status", "clean", "explain")
UNIT = (ROOT / "tools/ixfs-prepare/ixfs-prepare@.service.in").read_text(encoding="utf-8")
HELP = {name: man_options.help_of(program) for name, program in TOOLS.items()}
SUBCOMMAND_HELP = {name: man_options.help_of(TOOLS["ixfsctl"], name) for name in SUBCOMMANDS}


def lint(*files: pathlib.Path, source: str | None = None) -> list[str]:
    # Together in one pipe, one stream would come in the middle of the other's lines.
    said = subprocess.run(["mandoc", "-T", "lint", "-W", "all", *files], input=source, text=True,
                          capture_output=True, check=False)
    return [line for line in (said.stdout + said.stderr).splitlines() if not any(text in line for text in OF_THE_HOST)]


class ManPages(unittest.TestCase):
    def test_each_documented_name_finds_its_page(self):
        self.assertEqual({file.name for file in LINKS.iterdir()},
                         {f"{name}.3" for page in PAGES.values() if page.section == "3"
                          for name in page.names()} - PAGES.keys())
        for link in LINKS.iterdir():
            target = link.read_text(encoding="ascii").removeprefix(".so man3/").rstrip()
            self.assertIn(link.stem, PAGES[target].names())

    def test_mandoc_finds_no_fault(self):
        self.assertEqual(lint(*FILES), [])

    def test_mandoc_finds_faults(self):
        source = PAGES["ixfs.7"].source
        for old, new, complaint in ((".Sh FILES", ".Sh FILES\n.Nosuch macro", "unknown macro: .Nosuch"),
                                    (".El\n", "", "missing end of block"),
                                    (".Sh FILES", ".Sh FILES\n" + "word " * 17, "longer than 80")):
            with self.subTest(complaint):
                self.assertIn(complaint, "\n".join(lint(source=source.replace(old, new, 1))))

    def test_they_agree_with_headers_and_one_another(self):
        for check in man_checks.ALL:
            with self.subTest(check.__name__):
                self.assertEqual(check(list(PAGES.values()), HEADERS), [])

    def test_they_agree_with_the_tools(self):
        self.assertEqual(man_options.check_prepare(PAGES["ixfs-prepare.1"], HELP["ixfs-prepare"]), [])
        self.assertEqual(man_options.check_service(PAGES["ixfs-prepare.1"], UNIT), [])
        self.assertEqual(man_options.check_ctl(PAGES["ixfsctl.1"], HELP["ixfsctl"], SUBCOMMAND_HELP),
                         [])
        self.assertEqual(man_options.check_loopback(PAGES["ixfs-loopback.1"], HELP["ixfs-loopback"]),
                         [])


def altered(file_name: str, old: str, new: str) -> Page:
    source = PAGES[file_name].source
    assert old in source, f"{file_name} has no {old!r}"
    return Page(file_name, source.replace(old, new, 1))


class Faults(unittest.TestCase):
    """Each check finds what it is for."""

    def found(self, check, file_name, old, new):
        pages = PAGES | {file_name: altered(file_name, old, new)}
        return "\n".join(check(list(pages.values()), HEADERS))

    def test_of_a_prototype(self):
        faults = {
            "another type": ('.Fa "int port"', '.Fa "long port"'),
            "another name": ('.Fa "int port"', '.Fa "int number"'),
            "another order": ('.Fa "int port"\n.Fa "const char *server"',
                              '.Fa "const char *server"\n.Fa "int port"'),
            "one less": ('.Fa "int port"\n', ""),
            "another result": (".Ft ec_status\n", ".Ft int\n"),
            "another header": (".In ixfs.h", ".In ixfs_prepare.h"),
        }
        for name, (old, new) in faults.items():
            with self.subTest(name):
                self.assertIn("not as declared: ",
                              self.found(man_checks.check_prototypes, "ixfs_mount.3", old, new))

    def test_of_a_missing_an_invented_and_a_doubled_function(self):
        prototype = '.Ft ec_status\n.Fn ixfs_unmount "_ixfs_control_t *handle"\n'
        for new, complaint in (("", "ixfs_unmount is on 0 pages"),
                               (prototype + prototype, "ixfs_unmount is on 2 pages"),
                               (prototype + ".Fn ixfs_remount void\n",
                                "no header declares ixfs_remount")):
            with self.subTest(complaint):
                self.assertIn(complaint, self.found(man_checks.check_prototypes, "ixfs_mount.3",
                                                    prototype, new))

    def test_of_a_new_declaration(self):
        texts = {file.name: file.read_text(encoding="utf-8")
                 for file in (ROOT / "include").glob("*.h")}
        texts["ixfs.h"] += "IXFS_API int ixfs_remount(void);\nIXFS_API extern int g_count;\n"
        found = man_checks.check_prototypes(list(PAGES.values()), Headers(texts, {}))
        self.assertEqual(found, ["ixfs_remount is on 0 pages", "no page declares g_count"])

    def test_of_other_things(self):
        checks = man_checks
        faults = [
            (checks.check_declarations, "ixfs_views.3", "bool lock_held;", "int lock_held;",
             "ixfs_views.3: ixfs.h has no: typedef struct _ixfs_view_t"),
            (checks.check_names, "ixfs_mount.3", ".Nm ixfs_unmount ,\n", "",
             "ixfs_mount.3: documents"),
            (checks.check_words, "ixfs_mount.3", "EC_HELPER_FAILED Pq 29", "EC_HELPER_FAILED Pq 30",
             "ixfs_mount.3: not the number of a status"),
            (checks.check_words, "ixfs_mount.3", ".Dv EC_OK", ".Dv EC_FINE", "no constant EC_FINE"),
            (checks.check_words, "ixfs_mount.3", ".It Fa server", ".It Fa host", "no argument host"),
            (checks.check_words, "libixfs.3", ".Fn ixfs_term", ".Fn ixfs_end", "no function ixfs_end"),
            (checks.check_statuses, "libixfs.3", ".It Dv EC_NO_HANDLE Pq 103\n", "",
             "libixfs.3 does not list EC_NO_HANDLE"),
            (checks.check_framework, "libixfs.3", ".Vt NameSegments\n", "",
             "libixfs.3 does not name NameSegments"),
            (checks.check_framework, "libixfs.3", ".Fn getCodePageMgr\n", "",
             "libixfs.3 does not name getCodePageMgr"),
            (checks.check_framework, "libixfs.3", ".In code_page.h", ".In page.h",
             "libixfs.3 does not name code_page.h"),
            (checks.check_references, "ixfs_mount.3", ".Xr ixfsctl 1", ".Xr ixfsctl 8",
             "ixfs_mount.3: no page ixfsctl(8)"),
            (checks.check_references, "libixfs.3", ".It Xr ixfs_views 3", ".It Xr libixfs 3",
             "libixfs.3 lists"),
        ]
        for check, file_name, old, new, complaint in faults:
            with self.subTest(complaint):
                self.assertIn(complaint, self.found(check, file_name, old, new))

    def test_of_an_option(self):
        check, text = man_options.check_prepare, HELP["ixfs-prepare"]
        for old, new, complaint in (
                (".It Fl -json\n", "", "options: ('--json', '') is only in --help"),
                (".Op Fl -json\n", "", "synopsis: ('--json', '') is only in --help"),
                (".It Fl -json", ".It Fl -yaml", "options: ('--yaml', '') is only in the page"),
                (".It Fl -jobs Ar number", ".It Fl -jobs Ar n",
                 "options: ('--jobs', 'n') is only in the page"),
                (".It 3\n", ".It 4\n", "exit statuses: 3 is only in --help")):
            with self.subTest(complaint):
                self.assertIn(complaint, check(altered("ixfs-prepare.1", old, new), text))

    def test_of_the_service(self):
        page = altered("ixfs-prepare.1", "<instance>.jsonl", "<instance>.json")
        self.assertIn("/run/ixfs-prepare/%i.jsonl is only in the unit",
                      "\n".join(man_options.check_service(page, UNIT)))

    def test_of_a_subcommand(self):
        for old, new, complaint in (
                (".Ss Subcommand clean", ".Ss Subcommand clear",
                 "subcommands: clear is only in the page"),
                (".It Fl -slow-after Ar seconds\n", "",
                 "status: ('--slow-after', 'seconds') is only in --help"),
                (".Ar status | line | Fl", ".Ar status | Fl",
                 "arguments of explain: ('subject', 'status|-') is only in the page"),
                (".It 2\n", ".It 3\n", "exit statuses: 3 is only in the page")):
            with self.subTest(complaint):
                self.assertIn(complaint, man_options.check_ctl(
                    altered("ixfsctl.1", old, new), HELP["ixfsctl"], SUBCOMMAND_HELP))

    def test_of_the_stand_in(self):
        for old, new, complaint in (
                (".Op Fl timeout Ar n\n", "", "synopsis: mount -server s -port p -cred c dir is only"),
                (".It Pa umount/keep", ".It Pa mount/keep", "files: mount/keep is only in the page"),
                (".It 142\n", ".It 143\n", "answers: 142 is only in --help"),
                (".It 1\n", ".It 2\n", "exit statuses: 1 is only in --help")):
            with self.subTest(complaint):
                found = man_options.check_loopback(altered("ixfs-loopback.1", old, new),
                                                   HELP["ixfs-loopback"])
                self.assertIn(complaint, "\n".join(found))

    def test_of_a_display(self):
        for old, new, complaint in (('.\\" Example: output\n', "", "no marker in front of"),
                                    (r"\(aq\(haixfs", r"\(aq^ixfs", "not shown as it stands"),
                                    (r"\(aq\(haixfs", r"\(aq\(ohixfs", "unknown escape")):
            with self.subTest(complaint), self.assertRaisesRegex(ValueError, complaint):
                altered("ixfsctl.1", old, new).displays()


if __name__ == "__main__":
    unittest.main()
