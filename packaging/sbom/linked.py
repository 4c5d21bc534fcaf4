"""What the build put into the programs, told by the tools that built them."""
import functools
import os
import pathlib
import re
import shlex
import subprocess


def run(*command, check=True, **options):
    """What a command prints, in English."""
    return subprocess.run(command, check=check, stdout=subprocess.PIPE, encoding="utf-8",
                          env={**os.environ, "LC_ALL": "C"}, **options).stdout


def needed_libraries(file):
    """The shared libraries that the loader looks for, as the ELF file names them."""
    return re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "--dynamic", "--wide", file))


@functools.cache
def resolve(path):
    return os.path.realpath(path)


class Build:
    """A build tree of CMake and ninja."""

    def __init__(self, folder):
        self._folder = pathlib.Path(folder).resolve()
        (source,) = re.findall(r"^CMAKE_HOME_DIRECTORY:INTERNAL=(.+)$",
                               (self._folder / "CMakeCache.txt").read_text(encoding="utf-8"),
                               re.MULTILINE)
        self._source = resolve(source)
        self._headers = self._headers_of_objects()

    def parts(self, target):
        """What a program of the build was made of, outside the build: the headers that its objects
        were compiled from, and the objects and archives that the linker took code from."""
        headers, static = set(), set()
        for archive, item in self._link_again(target):
            if item in self._headers:
                headers |= self._headers[item]
            elif self._is_ours(resolve(os.path.join(self._folder, archive or item))):
                headers |= self._headers[self._object_of(archive, item)]
            else:
                static.add(resolve(archive or item))
        return {header for header in headers if not self._is_ours(header)}, static

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
                current.add(resolve(os.path.join(self._folder, line.strip())))
            elif line:
                current = headers.setdefault(line.partition(":")[0], set())
        return headers

    def _is_ours(self, file):
        return file.startswith((f"{self._folder}/", f"{self._source}/"))

    def _object_of(self, archive, member):
        """The file that is a member of an archive of the build."""
        (found,) = (line.strip() for line in self._ninja("query", archive).splitlines()
                    if os.path.basename(line.strip()) == member)
        return found

    def _link_again(self, target):
        """The objects that the linker names while it links the target once more, to nowhere, each
        with the archive that it is a member of, or without one."""
        *_, command = self._ninja("commands", "-s", target).splitlines()
        words = shlex.split(command)
        words = words[words.index("&&") + 1:] if words[0] == ":" else words
        words = words[:words.index("&&")] if "&&" in words else words
        words[words.index("-o") + 1] = os.devnull
        # Said twice, it names members of archives, too.
        named = run(*words, "-Wl,--trace,--trace", cwd=self._folder)
        return re.findall(r"^(?:\((.+)\))?(\S+\.o)$", named, re.MULTILINE)
