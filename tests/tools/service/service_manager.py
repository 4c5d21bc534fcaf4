"""Does with a unit file what systemd does with it, as far as ixfs-prepare@.service asks for it.

systemd itself needs to be a host's first process. What is not known here is refused, so that a unit
never passes by what was overlooked.
"""
import os
import pathlib
import shutil
import signal
import subprocess

HANDLED = {"Type", "LoadCredential", "ExecStart", "StandardOutput", "StandardError", "KillMode",
           "TimeoutStopSec"}
CREDENTIALS = pathlib.Path("/run/credentials")


def read_unit(file):
    """The settings of each section; each has the list of its values."""
    sections = {}
    for line in pathlib.Path(file).read_text(encoding="ascii").splitlines():
        if line.startswith("["):
            settings = sections.setdefault(line.strip("[]"), {})
        elif line and line[0] not in "#;":
            name, value = line.split("=", 1)
            settings.setdefault(name, []).append(value)
    return sections


class Service:
    """An instance of a template unit."""

    def __init__(self, unit_file, instance):
        self._settings = read_unit(unit_file)["Service"]
        unknown = self._settings.keys() - HANDLED
        assert not unknown, f"the tests' service manager does not know {unknown}"
        assert self._setting("Type") == "oneshot"
        self._instance = instance
        self._credentials = CREDENTIALS / f"ixfs-prepare@{instance}.service"
        self._journal = pathlib.Path(f"/run/journal-{instance}")
        self._process = None

    def start(self):
        """Begins. What it says lies in a file, as the journal would keep it."""
        self._load_credentials()
        kind, _, output = self._expand(self._setting("StandardOutput")).partition(":")
        assert kind == "truncate" and self._setting("StandardError") == "journal"
        # The folder of the result must be there.
        with open(output, "wb") as result, open(self._journal, "wb") as journal:
            self._process = subprocess.Popen(
                self.command(), stdin=subprocess.DEVNULL, stdout=result, stderr=journal, cwd="/",
                start_new_session=True,
                env={"PATH": "/usr/sbin:/usr/bin", "CREDENTIALS_DIRECTORY": self._credentials})

    def command(self):
        """The words of ExecStart; it must have none of the things that systemd would replace."""
        line = self._setting("ExecStart")
        assert not set(line) & set("$\"'\\;"), line
        return [self._expand(word) for word in line.split()]

    def stop(self):
        """systemctl stop: it asks, and does not wait."""
        assert self._setting("KillMode") == "mixed"  # only the main process is asked
        assert "KillSignal" not in self._settings
        self._process.send_signal(signal.SIGTERM)
        self._process.send_signal(signal.SIGCONT)

    def errors(self):
        return self._journal.read_text(encoding="utf-8")

    def wait(self):
        """Returns the exit status, and what it said."""
        status = self._process.wait(timeout=60)
        shutil.rmtree(self._credentials)
        return status, self.errors()

    def kill(self):
        """Whatever still runs of it; nothing, after wait()."""
        if self._process is not None and self._process.poll() is None:
            os.killpg(self._process.pid, signal.SIGKILL)

    def _setting(self, name):
        (value,) = self._settings[name]
        return value

    def _expand(self, text):
        text = text.replace("%i", self._instance).replace("%d", str(self._credentials))
        assert "%" not in text, text
        return text

    def _load_credentials(self):
        self._credentials.mkdir(mode=0o500, parents=True)
        for entry in self._settings["LoadCredential"]:
            name, _, source = self._expand(entry).partition(":")
            shutil.copyfile(source, self._credentials / name)
            os.chmod(self._credentials / name, 0o400)
