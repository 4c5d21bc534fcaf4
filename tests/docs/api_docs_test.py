#!/usr/bin/python3
"""Doxygen's output holds the whole interface, with all that the headers say of it.

    api_docs_test.py REPOSITORY FOLDER

Also tries the check itself, on headers that were altered to be wrong.
"""
import collections
import html
import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

root, folder = map(pathlib.Path, sys.argv[1:])
headers = sorted([*root.glob("include/*.h")] +
                 [root / "framework" / name
                  for name in ("code_page.h", "lmf_pathname.h", "lmf_string.h")])


def doxygen(output, paths):
    """Returns the exit status and what was printed."""
    done = subprocess.run([root / "script/api-docs", output, *paths], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return done.returncode, done.stdout


def text_of(element):
    if element is None:
        return ""
    for blank in element.iter("sp"):  # in code
        blank.text = " "
    return " ".join("".join(element.itertext()).split())


def words_of(text):
    return collections.Counter(re.findall(r"\w+", text))


def comments_of(source):
    source = re.sub(r"\\\n", "", source)
    found = re.findall(r'"(?:[^"\\\n]|\\.)*"|(/\*.*?\*/|//[^\n]*)', source, re.DOTALL)
    found = [re.sub(r"^[ */]+\d+\. ", "", comment, flags=re.MULTILINE)  # a list's own numbers
             for comment in found]
    return [comment for comment in found
            if comment and 'extern "C"' not in comment and "clang-format" not in comment]


class Reference:
    """What Doxygen has written."""

    def __init__(self, output):
        self.documents = [ElementTree.parse(path) for path in output.glob("xml/*_8h.xml")]
        self.documents += [ElementTree.parse(path)
                           for kind in ("class", "struct")
                           for path in output.glob(f"xml/{kind}*.xml")]
        self.described = collections.defaultdict(list)
        for document in self.documents:
            for member in document.iter("memberdef"):
                description = (text_of(member.find("briefdescription")) +
                               text_of(member.find("detaileddescription")))
                self.described[member.findtext("name")].append(description)

    def words(self, header):
        """All words of the descriptions of a header and of its classes."""
        words = collections.Counter()
        for document in self.documents:
            for compound in document.iter("compounddef"):
                location = compound.find("location").get("file")
                if pathlib.Path(location).name != header:
                    continue
                for part in compound.iter():
                    if part.tag in ("briefdescription", "detaileddescription", "description",
                                    "header"):
                        words += words_of(text_of(part))
        return words


def exported_names(text):
    """The names of exports, without classes and parameters, that a public header declares."""
    names = {re.sub(r"[\[(@].*", "", line).split("::")[-1]
             for line in (root / "tests/packaging/exports.txt").read_text().splitlines()}
    return {name for name in names if re.search(rf"(?<!\w){re.escape(name)}\b", text)}


def lost_words(comments, described):
    return sorted((words_of(" ".join(comments)) - described).elements())


def alter(path, old, new):
    text = path.read_text()
    assert text.count(old) == 1, f"{path.name}: no such text: {old}"
    path.write_text(text.replace(old, new))


def check_interface():
    status, printed = doxygen(folder / "whole", headers)
    assert (status, printed) == (0, ""), printed
    reference = Reference(folder / "whole")
    names = exported_names("\n".join(header.read_text() for header in headers))
    assert len(names) >= 50, names
    for name in sorted(names):
        assert reference.described.get(name), f"{name}: not in the output"
        assert all(reference.described[name]), f"{name}: without a description"
    for header in headers:
        described = reference.words(header.name)
        comments = comments_of(header.read_text())
        assert not (lost := lost_words(comments, described)), f"{header.name}: lost: {lost}"
        assert lost_words([*comments, "/* swallowed */"], described) == ["swallowed"]
    pages = "".join(html.unescape(path.read_text())
                    for path in (folder / "whole/html").glob("*_8h.html"))
    assert "Prepares a VM for instant recovery" in pages
    front = folder / "whole/html/index.html"
    documents = re.findall(r'href="([^"]*\.md)', front.read_text())
    assert len(documents) >= 4, documents
    for document in documents:
        assert (front.parent / document).is_file(), f"{front} leads to no {document}"
    return len(names)


def check_altered_headers():
    """What is wrong in a header fails, and the message says what."""
    altered = folder / "altered"
    altered.mkdir(parents=True, exist_ok=True)
    for header in headers:
        (altered / header.name).write_text(header.read_text())
    alter(altered / "ixfs.h", "/* Ends a handle: ",
          "IXFS_API int ixfs_undocumented(void);\n\n/* Ends a handle: ")
    alter(altered / "ixfs.h", "EC_NO_MEMORY when it cannot be copied",
          "EC_NO_SUCH_STATUS when it cannot be copied")
    alter(altered / "ixfs_vmir.h", "//   vmConfig      receives", "//   oldName       receives")
    alter(altered / "ixfs_prepare.h", "    int port;                 /* 1 or more */",
          "    int port;")
    status, printed = doxygen(folder / "failed", altered.glob("*.h"))
    assert status != 0
    for wrong in (r"ixfs_undocumented\b.* is not documented",
                  r"'EC_NO_SUCH_STATUS' could not be resolved",
                  r"ixfs_prepare_vmir\(.* is not documented:\s+parameter 'vmConfig'",
                  r"Member port .* is not documented"):
        assert re.search(wrong, printed), f"nothing says: {wrong}\n{printed}"


print(f"{check_interface()} names")
check_altered_headers()
