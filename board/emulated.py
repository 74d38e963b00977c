"""A board that runs: the emulator's process, its console's log and the channel to it."""
import pathlib
import re
import subprocess
import tempfile
import time

from . import machines
from .channel import PATIENCE, BoardSilent, Channel

RESTARTED = r"reboot: (Restarting system|System halted|Power down)"
ENDED = RESTARTED + r"|Kernel panic.*"


class Failed(Exception):
    """A script on the board ended with a status other than 0."""


class Board:
    """Boots on entry, ends on exit. console is the log of everything that the console showed."""

    def __init__(self, machine, tree, initramfs, work, shell=False):
        self.machine = machine
        self.console = work / "console.log"
        self._shell = shell
        self._folder = tempfile.TemporaryDirectory(prefix="board-")
        self._tree = tree
        self._initramfs = initramfs
        self._process = None
        self.channel = Channel(self._socket(), self.ended)
        self.boot_seconds = 0.0
        self.answers = True

    def _socket(self):
        return pathlib.Path(self._folder.name) / "channel"

    def _command(self):
        machine = self.machine
        command = [
            *machine.emulator,
            "-accel",
            "tcg",
            "-m",
            str(machine.memory),
            "-display",
            "none",
            "-no-reboot",
            "-nodefaults",
            "-nic",
            "none",
            "-kernel",
            machines.kernel(self._tree),
            "-initrd",
            self._initramfs,
        ]
        if machine.device_tree:
            command += ["-dtb", machines.device_tree(machine, self._tree, self.console.parent)]
        console = "stdio,signal=off" if self._shell else "null"
        command += [
            "-chardev",
            f"{console},id=console,logfile={self.console},logappend=off",
            "-chardev",
            f"socket,id=channel,path={self._socket()}",
            *machine.serial,
        ]
        kernel_line = f"console={machine.console},115200 quiet board.channel={machine.channel}"
        words = [kernel_line, *machine.words, *(["board.shell"] if self._shell else [])]
        return command + ["-append", " ".join(words)]

    def __enter__(self):
        self.console.unlink(missing_ok=True)
        start = time.monotonic()
        with open(self.console.with_name("emulator.log"), "wb") as log:
            self._process = subprocess.Popen(
                self._command(), stderr=log, stdin=None if self._shell else subprocess.DEVNULL
            )
        try:
            self.channel.accept(60)
            status, log = self.channel.wait_for("ready")
            if status != 0:
                raise BoardSilent(
                    "its screen could not be set up: " + (log or b"(damaged log)").decode(errors="replace")
                )
        except (BoardSilent, OSError) as error:
            self.__exit__()
            raise BoardSilent(
                f"{self.machine.name} did not come up: {error}; its console:\n" + self.console_text()[-4000:]
            ) from None
        self.boot_seconds = time.monotonic() - start
        return self

    def __exit__(self, *_):
        self._process.terminate()
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self.channel.close()
        self._folder.cleanup()

    def ended(self):
        """Why the board can say nothing more; empty as long as it may."""
        if self._process.poll() is not None:
            return f"the emulator ended with {self._process.returncode}"
        found = re.search(ENDED, self.console_text())
        return found[0] if found else ""

    def run(self, script):
        """Status and output (bytes) of a script on the board."""
        try:
            return self.channel.request(script)
        except BoardSilent:
            self.answers = False
            raise

    def post(self, script):
        """Starts a script that the board may not live to answer."""
        self.channel.post(script)

    def output(self, script):
        """What a script wrote, which must end well."""
        status, output = self.run(script)
        if status != 0:
            raise Failed(f"status {status} of: {script}\n{output.decode(errors='replace')}")
        return output

    def text(self, script):
        return self.output(script).decode()

    def console_text(self):
        return self.console.read_text(errors="replace") if self.console.exists() else ""

    def wait_for_console(self, pattern):
        """Waits until the console has shown the pattern; returns whether it has."""
        end = time.monotonic() + PATIENCE
        while not re.search(pattern, self.console_text()):
            if time.monotonic() > end or self._process.poll() is not None:
                return bool(re.search(pattern, self.console_text()))
            time.sleep(0.05)
        return True

    def wait_for_end(self, deadline=PATIENCE):
        """Waits until the emulator ends by itself; None where it does not, else its status."""
        try:
            return self._process.wait(deadline)
        except subprocess.TimeoutExpired:
            return None
