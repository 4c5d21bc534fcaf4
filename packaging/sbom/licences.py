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
            self.expression = " AND ".join(sorted(set().union(*map(self._spdx, names))))

    def _spdx(self, name):
        """The licences that a License field, such as "Expat or GPL-2+ and ISC", asks for: each is a
        name, or a choice. "and" binds more tightly than "or", and behind a comma less."""
        for separator in (", +and +", ",? +or +", " +and +"):
            sides = re.split(separator, name)
            if len(sides) == 1 or name in self._known_texts:
                continue
            found = [self._spdx(side.strip()) for side in sides]
            if "or" in separator:
                return {"(" + " OR ".join(sorted(map(self._together, found))) + ")"}
            return set().union(*found)
        return {self._one(name)}

    @staticmethod
    def _together(names):
        return next(iter(names)) if len(names) == 1 else "(" + " AND ".join(sorted(names)) + ")"

    def _one(self, name):
        if name in SPDX_NAMES:
            return SPDX_NAMES[name]
        reference = re.sub(r"[^A-Za-z0-9.-]+", "-", f"LicenseRef-{self._package}-{name}")
        self.texts[reference] = (name, self._known_texts.get(name, f"See {self._package}."))
        return reference
