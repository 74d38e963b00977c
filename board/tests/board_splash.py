"""The splash on a board, driven from outside."""
import shlex

from desk import SOCKET, pictures


class Splash:
    """One that runs."""

    def __init__(self, board, *arguments, **environment):
        self.board = board
        settings = " ".join(f"{name}={shlex.quote(value)}" for name, value in environment.items())
        self.board.output(f"{settings} splash {shlex.join(arguments)}")
        self.pid = int(self.board.text("cat /run/splash.pid"))

    def wait_until_drawn(self):
        self.board.output(f"wait_for test -S {SOCKET} && wait_for drawn")
        return self

    def send(self, text):
        self.board.output(f"board-tool send {SOCKET} {shlex.quote(text)}")

    def signal(self, name):
        self.board.output(f"kill -{name} {self.pid}")

    def wait_for_end(self):
        """The program's exit status, as a shell sees it."""
        return int(self.board.text("wait_for test -e /run/splash.status && cat /run/splash.status"))

    def log(self):
        return self.board.text("cat /run/splash.log")

    def screens(self, count):
        """That many pictures of the screen, one after the other."""
        return pictures.split(self.board.output(f"screen {count} /run/picture && cat /run/picture"))
