"""Real shells on a terminal of their own, in which keys are pressed.

Nothing is read off the terminal: a key of each shell reports the line that is edited through a pipe.
"""

import os
import pty
import select
import signal
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))
DELETE_LINE = "\x05\x15"  # goes to its end, and deletes all before it
INSERT_ALL_MATCHES = "\x18a"
REPORT_LINE = "\x18l"
PATIENCE = 60  # seconds until a shell counts as hanging


class Shell:
    """An interactive shell in a folder. Each line that it edits begins empty, and none is run."""

    command = []
    surroundings = {}

    def __init__(self, scripts, folder, home, hosts):
        """`scripts` is the folder of the completion, `hosts` what completes as names of hosts."""
        reports, to_reports = os.pipe()
        os.set_inheritable(to_reports, True)
        host_file = os.path.join(home, "hosts")
        with open(host_file, "w", encoding="utf-8") as file:
            file.write("127.0.0.1 " + " ".join(hosts) + "\n")
        environment = {
            "PATH": os.environ["PATH"],
            "LC_ALL": "C.UTF-8",
            "TERM": "dumb",
            "SCRIPTS": scripts,
            "REPORTS": str(to_reports),
            "HOSTFILE": host_file,
            "HOSTS": " ".join(hosts),
            "HOME": home,
        }
        self._folder = folder
        self._process, self._terminal = pty.fork()
        if self._process == 0:
            os.chdir(folder)
            os.execvpe(self.command[0], self.command, environment | self.surroundings)
        os.close(to_reports)
        self._reports = reports
        self.line_after("")  # until it edits lines, the terminal would take keys for itself

    def close(self):
        os.kill(self._process, signal.SIGKILL)
        os.waitpid(self._process, 0)
        os.close(self._terminal)
        os.close(self._reports)

    def line_after(self, keys):
        """The line after these keys are pressed."""
        os.write(self._terminal, (keys + REPORT_LINE).encode())
        report = b""
        while not report.endswith(b"\0"):
            ready, _, _ = select.select([self._reports, self._terminal], [], [], PATIENCE)
            assert ready, f"{self.command[0]} hangs"
            if self._terminal in ready:
                os.read(self._terminal, 65536)
            if self._reports in ready:
                report += os.read(self._reports, 65536)
        if keys:
            os.write(self._terminal, DELETE_LINE.encode())
        return report[:-1].decode()

    def arguments_of(self, line):
        """The arguments that a shell would give to the command of a line."""
        script = f"{line.split()[0]}() {{ for word; do printf '%s\\0' \"$word\"; done; }}\n{line}"
        output = subprocess.run(
            ["bash", "-c", script], check=True, stdout=subprocess.PIPE, cwd=self._folder
        ).stdout
        return output.decode().split("\0")[:-1]

    def offers(self, line):
        """All words that are offered at the end of a line."""
        completed = self.line_after(line + INSERT_ALL_MATCHES)
        if completed.strip() == line.strip():
            return []
        already = len(self.arguments_of(line)) - (0 if line.endswith(" ") else 1)
        words = self.arguments_of(completed)[already:]
        if line.split()[-1].startswith("--") and line.endswith("="):
            return [word.removeprefix(line.split()[-1]) for word in words]
        return [word.removesuffix("=") for word in words]  # zsh puts it behind an option's name


class Bash(Shell):
    command = ["bash", "--noprofile", "--rcfile", os.path.join(HERE, "bashrc"), "-i"]


class BashThatBreaksNoWordAtEqualsSigns(Bash):
    surroundings = {"NO_BREAK": "="}


class BashWithItsCompletion(Bash):
    """With Debian's package bash-completion, which finds the scripts by itself."""

    surroundings = {"WITH_BASH_COMPLETION": "1"}


class Zsh(Shell):
    command = ["zsh", "--no-globalrcs", "-i"]
    surroundings = {"ZDOTDIR": os.path.join(HERE, "zsh")}
