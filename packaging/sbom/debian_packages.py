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


class InstalledPackages:
    """The installed packages that files belong to."""

    def __init__(self):
        self._owners = {}

    def of(self, files):
        """The packages of these files. Each file must belong to one."""
        self._look_up(set(files) - self._owners.keys())
        return {self._owners[file] for file in files}

    def _look_up(self, files):
        if not files:
            return
        paths = {alias: file for file in files for alias in _aliases(file)}
        # It fails, as of each file one name is unknown.
        found = run("dpkg-query", "--search", *sorted(paths), check=False,
                    stderr=subprocess.DEVNULL)
        names = {paths[path]: owner for owner, path in
                 re.findall(r"^(?!diversion )(\S+): (.+)$", found, re.MULTILINE)}
        if strays := files - names.keys():
            raise LookupError(f"of no package: {', '.join(sorted(strays))}")
        packages = {name: _package(run("dpkg-query", "--show", f"--showformat={_FORMAT}", name))
                    for name in set(names.values())}
        self._owners.update((file, packages[name]) for file, name in names.items())


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
