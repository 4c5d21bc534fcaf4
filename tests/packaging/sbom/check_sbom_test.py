"""check_sbom finds each fault in a bill of materials, and none in a good one."""
import copy
import hashlib
import importlib.machinery
import importlib.util
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
LOADER = importlib.machinery.SourceFileLoader(
    "check_sbom", str(pathlib.Path(__file__).with_name("check_sbom")))
check_sbom = importlib.util.module_from_spec(
    importlib.util.spec_from_loader(LOADER.name, LOADER))
LOADER.exec_module(check_sbom)


def package(name, licence):
    return {"SPDXID": f"SPDXRef-{name}", "name": name, "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False, "licenseDeclared": licence}


GOOD = {
    "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
    "name": "ours-1", "documentNamespace": "https://spdx.org/spdxdocs/ours-1-x",
    "creationInfo": {"created": "2026-11-22T12:00:00Z", "creators": ["Tool: t-1"]},
    "packages": [package("ours", "MIT AND (ISC OR LicenseRef-own)"),
                 package("theirs", "NOASSERTION")],
    "hasExtractedLicensingInfos": [{"licenseId": "LicenseRef-own", "extractedText": "Ask us."}],
    "relationships": [
        {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
         "relatedSpdxElement": "SPDXRef-ours"},
        {"spdxElementId": "SPDXRef-ours", "relationshipType": "DYNAMIC_LINK",
         "relatedSpdxElement": "SPDXRef-theirs", "comment": "libtheirs.so.1"}],
}


def problems(document):
    found = list(check_sbom.check_form(document))
    return found or [*check_sbom.check_references(document), *check_sbom.check_licences(document)]


class CheckSbom(unittest.TestCase):
    def setUp(self):
        self.document = copy.deepcopy(GOOD)
        self.ours = self.document["packages"][0]

    def expect(self, text):
        found = problems(self.document)
        self.assertEqual(len(found), 1, found)
        self.assertIn(text, found[0])

    def test_a_good_one_has_no_fault(self):
        self.assertEqual(problems(self.document), [])

    def test_a_time_in_another_form(self):
        self.document["creationInfo"]["created"] = "2026-11-22"
        self.expect("$.creationInfo.created")

    def test_a_namespace_that_is_no_uri(self):
        self.document["documentNamespace"] = "ours"
        self.expect("$.documentNamespace")

    def test_a_checksum_of_another_length(self):
        self.ours["checksums"] = [{"algorithm": "SHA512", "checksumValue": "0" * 64}]
        self.expect("$.packages[0].checksums[0]")

    def test_a_member_that_is_missing(self):
        del self.ours["downloadLocation"]
        self.expect("downloadLocation")

    def test_an_element_that_is_there_twice(self):
        self.document["packages"].append(package("theirs", "MIT"))
        self.expect("SPDXRef-theirs is there twice")

    def test_a_relationship_to_nothing(self):
        self.document["relationships"].append(
            {"spdxElementId": "SPDXRef-ours", "relationshipType": "STATIC_LINK",
             "relatedSpdxElement": "SPDXRef-nobody"})
        self.expect("SPDXRef-nobody, which is not there")

    def test_a_package_without_a_relationship(self):
        del self.document["relationships"][1]
        self.expect("SPDXRef-theirs is in no relationship")

    def test_a_licence_that_spdx_does_not_have(self):
        self.ours["licenseDeclared"] += " AND Expat-9"
        self.expect("no licence Expat-9")

    def test_an_expression_that_does_not_end(self):
        self.document["packages"][1]["licenseDeclared"] = "MIT AND"
        self.expect("theirs: ")

    def test_a_licence_text_that_nothing_has(self):
        self.ours["licenseDeclared"] = "MIT"
        self.expect("nothing has the licence LicenseRef-own")


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


class CheckAgainstPackages(unittest.TestCase):
    """A document of two packages, of which one depends on the other, and of one that is installed."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        self.debs = [self.make("ours"), self.make("user", "Depends: ours, dpkg\n")]
        version, architecture = run(
            "dpkg-query", "--show", "--showformat=${Version} ${Architecture}", "dpkg").split()
        locator = f"pkg:deb/debian/dpkg@{version.replace('+', '%2B')}?arch={architecture}"
        self.theirs = {"name": "dpkg", "versionInfo": version, "SPDXID": "dpkg",
                       "externalRefs": [{"referenceLocator": locator}]}
        self.ours, self.user = map(self.entry, self.debs)
        self.relations = [
            *({"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
               "relatedSpdxElement": entry["SPDXID"]} for entry in (self.ours, self.user)),
            {"spdxElementId": self.user["SPDXID"], "relationshipType": "DEPENDS_ON",
             "relatedSpdxElement": self.ours["SPDXID"]}]

    def make(self, name, more=""):
        control = self.folder / name / "DEBIAN/control"
        control.parent.mkdir(parents=True)
        control.write_text(f"Package: {name}\nVersion: 1\nArchitecture: all\n"
                           f"Maintainer: me <me@example.com>\nDescription: x\n{more}")
        run("dpkg-deb", "--build", control.parents[1], self.folder / f"{name}_1_all.deb")
        return self.folder / f"{name}_1_all.deb"

    @staticmethod
    def entry(deb):
        name = deb.name.split("_")[0]
        return {"name": name, "versionInfo": "1", "SPDXID": f"SPDXRef-Package-{name}-all",
                "packageFileName": deb.name,
                "checksums": [{"algorithm": algorithm.upper(), "checksumValue":
                               hashlib.new(algorithm, deb.read_bytes()).hexdigest()}
                              for algorithm in ("sha256", "sha512")]}

    def problems(self):
        document = {"packages": [self.ours, self.user, self.theirs],
                    "relationships": self.relations}
        return [*check_sbom.check_packages(document, self.debs),
                *check_sbom.check_distribution(document)]

    def test_a_true_one_has_no_fault(self):
        self.assertEqual(self.problems(), [])

    def test_sees_each_lie(self):
        checksums = self.ours["checksums"]
        stray = {"spdxElementId": self.user["SPDXID"], "relationshipType": "DYNAMIC_LINK",
                 "relatedSpdxElement": "dpkg", "comment": "libtheirs.so.1"}
        for expected, *change in [
                ("is not ours 2", self.ours, "versionInfo", "2"),
                ("another checksum, SHA256", checksums[0], "checksumValue", "0" * 64),
                ("another checksum, SHA512", checksums[1], "checksumValue", "0" * 128),
                ("depends on ['ours']", self.relations[2], "relationshipType", "OTHER"),
                ("packages that are described", self.relations[0], "relationshipType", "OTHER"),
                ("is not described", self.ours, "packageFileName", "other.deb"),
                ("dpkg 0 is not installed", self.theirs, "versionInfo", "0"),
                ("is not dpkg@0", self.theirs["externalRefs"][0], "referenceLocator",
                 "pkg:deb/debian/dpkg@0?arch=all"),
                ("dpkg does not hold ['libtheirs.so.1']", self.relations[2], None, stray)]:
            entry, member, value = change
            with self.subTest(expected):
                before = dict(entry)
                entry.update(value if member is None else {member: value})
                self.assertIn(expected, "\n".join(self.problems()))
                entry.clear()
                entry.update(before)


if __name__ == "__main__":
    unittest.main()
