"""Licences, from Debian's machine-readable copyright files."""
import re

# Debian's short names that SPDX spells otherwise, or the same.
SPDX_NAMES = {
    "Apache-2.0": "Apache-2.0", "Artistic": "Artistic-1.0", "BSD-2-clause": "BSD-2-Clause",
    "BSD-3-clause": "BSD-3-Clause", "BSL-1.0": "BSL-1.0", "Expat": "MIT", "GPL-2": "GPL-2.0-only",
    "GPL-2+": "GPL-2.0-or-later", "GPL-3": "GPL-3.0-only", "GPL-3+": "GPL-3.0-or-later",
    "ISC": "ISC", "LGPL-2": "LGPL-2.0-only", "LGPL-2.1": "LGPL-2.1-only",
    "LGPL-2.1+": "LGPL-2.1-or-later", "Zlib": "Zlib"}


def _paragraphs(text):
    for block in re.split(r"\n\s*\n", text):
        fields = re.findall(r"^(\S+?):[ \t]*(.*(?:\n[ \t].*)*)", block, re.MULTILINE)
        if fields:
            yield dict(fields)


def _texts(paragraphs):
    """The text of each licence, by its short name."""
    texts = {}
    for paragraph in paragraphs:
        name, _, text = paragraph.get("License", "").partition("\n")
        text = re.sub(r"^ (\.$)?", "", text, flags=re.MULTILINE).strip()
        if text:
            texts.setdefault(name.strip(), text)
    return texts


class Licences:
    """The licences of one package, as an SPDX expression and the texts that SPDX has no name for."""

    def __init__(self, package, copyright_file):
        self.expression = "NOASSERTION"
        self.texts = {}
        text = copyright_file.read_text(encoding="utf-8", errors="replace")
        if not re.match(r"Format:.*copyright-format", text):
            return
        self._package = package
        paragraphs = list(_paragraphs(text))
        self._known_texts = _texts(paragraphs)
        names = {paragraph["License"].partition("\n")[0].strip()
                 for paragraph in paragraphs if "Files" in paragraph and "License" in paragraph}
        if names:
            self.expression = " AND ".join(sorted({self._spdx(name) for name in names}))

    def _spdx(self, name):
        """The SPDX form of what a License field says, such as "Expat or GPL-2+"."""
        operator = re.search(r",? +(and|or) +", name)
        if operator is None or name in self._known_texts:
            return self._one(name)
        left, right = name[:operator.start()], name[operator.end():]
        return f"({self._spdx(left)} {operator[1].upper()} {self._spdx(right)})"

    def _one(self, name):
        if name in SPDX_NAMES:
            return SPDX_NAMES[name]
        reference = re.sub(r"[^A-Za-z0-9.-]+", "-", f"LicenseRef-{self._package}-{name}")
        self.texts[reference] = (name, self._known_texts.get(name, f"See {self._package}."))
        return reference
