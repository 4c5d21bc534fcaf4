"""What dpkg knows of the packages that files belong to, and what is in a .deb file."""
import hashlib
import pathlib
import re
import subprocess
from dataclasses import dataclass

from linked import run

FIELDS = ("Package", "Version", "Architecture", "Maintainer", "source:Package", "source:Version")


@dataclass(frozen=True, order=True)
class Package:
    name: str
    version: str
    architecture: str
    maintainer: str
    source: str
    source_version: str

    def copyright_file(self):
        return pathlib.Path("/usr/share/doc", self.name, "copyright")


def _package(line):
    return Package(*line.split("\t"))


_FORMAT = "\t".join(f"${{{field}}}" for field in FIELDS)


def installed_packages(files):
    """The installed packages that the files belong to. Each file must belong to one."""
    paths = {alias: file for file in files for alias in _aliases(file)}
    found = subprocess.run(["dpkg-query", "--search", *sorted(paths)], text=True, check=False,
                           capture_output=True).stdout
    names, owned = set(), set()
    for owner, path in re.findall(r"^(?!diversion )(\S+): (.+)$", found, re.MULTILINE):
        names.add(owner)
        owned.add(paths[path])
    if strays := set(files) - owned:
        raise LookupError(f"of no package: {', '.join(sorted(strays))}")
    return {_package(line) for line in
            run("dpkg-query", "--show", f"--showformat={_FORMAT}\n", *sorted(names)).splitlines()
            } if names else set()


def _aliases(file):
    """A file's names, of which dpkg knows one: /lib is a link to /usr/lib."""
    return {file, file.removeprefix("/usr")} if file.startswith("/usr/lib") else {file}


class Deb:
    """A .deb file."""

    def __init__(self, file):
        self.file = pathlib.Path(file)
        control = dict(re.findall(r"^(\S+): (.*)$", run("dpkg-deb", "--field", file), re.MULTILINE))
        self.package = Package(control["Package"], control["Version"], control["Architecture"],
                               control["Maintainer"], *self._source(control))
        self.description = control["Description"]
        self.dependencies = set(re.findall(r"([a-z0-9][a-z0-9+.-]+)(?: \([^)]*\))?",
                                           control.get("Depends", "")))

    def checksum(self, algorithm):
        return hashlib.new(algorithm, self.file.read_bytes()).hexdigest()

    def unpack(self, folder):
        run("dpkg-deb", "--extract", self.file, folder)
        return pathlib.Path(folder)

    @staticmethod
    def _source(control):
        name, _, version = control.get("Source", control["Package"]).partition(" ")
        return name, version.strip("()") or control["Version"]
