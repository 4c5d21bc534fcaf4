"""What the build put into the programs, told by the tools that built them."""
import os
import pathlib
import re
import shlex
import subprocess


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True,
                          env={**os.environ, "LC_ALL": "C"}, **options).stdout


def needed_libraries(file):
    """The shared libraries that the loader looks for, as the ELF file names them."""
    return re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "--dynamic", "--wide", file))


class Build:
    """A build tree of CMake and ninja."""

    def __init__(self, folder):
        self._folder = pathlib.Path(folder).resolve()
        self._headers = self._headers_of_objects()

    def headers(self, target):
        """The headers outside the build that the objects of a target were compiled from."""
        objects = re.findall(r"^ *(\S+\.o)$", self._ninja("inputs", target), re.MULTILINE)
        assert objects, f"{target} has no objects"
        return set().union(*(self._headers[item] for item in objects))

    def static_parts(self, target):
        """The objects and archives outside the build that the linker takes code from."""
        files = set()
        for line in self._link_again(target).splitlines():
            file = pathlib.Path(self._folder, line.strip("(").partition(")")[0]).resolve()
            if file.suffix in (".o", ".a") and not file.is_relative_to(self._folder):
                files.add(str(file))
        return files

    def target(self, name):
        """The file of the build that was packaged under a file name."""
        (file,) = (line.partition(":")[0] for line in
                   self._ninja("targets", "all").splitlines()
                   if re.search(r": \S+_LINKER__", line) and
                   os.path.basename(line.partition(":")[0]) == name)
        return file

    def _ninja(self, tool, *arguments):
        return run("ninja", "-C", self._folder, "--quiet", "-t", tool, *arguments)

    def _headers_of_objects(self):
        headers, current = {}, set()
        for line in self._ninja("deps").splitlines():
            if line.startswith(" "):
                current.add(str(pathlib.Path(self._folder, line.strip()).resolve()))
            elif line:
                current = headers.setdefault(line.partition(":")[0], set())
        return headers

    def _link_again(self, target):
        """The files that the linker names while it links the target once more, to nowhere."""
        *_, command = self._ninja("commands", "-s", target).splitlines()
        words = shlex.split(command)
        words = words[words.index("&&") + 1:] if words[0] == ":" else words
        words = words[:words.index("&&")] if "&&" in words else words
        words[words.index("-o") + 1] = os.devnull
        return run(*words, "-Wl,--trace", cwd=self._folder)
