"""A user without rights, for tests that root runs: what becomes of a splash that he runs, and what he
can do to a splash of somebody else."""

import os
import subprocess
import sys

NOBODY = 65534


class User:
    """One user id that owns nothing but what it is given."""

    def __init__(self, number=NOBODY):
        self.number = number

    def become(self):
        """In a process of its own: gives up everything, for good."""
        os.setgroups([])
        os.setgid(self.number)
        os.setuid(self.number)

    def can_run(self, program):
        """Whether he reaches the program and may run it."""
        return self.run(f"import os; assert os.access({str(program)!r}, os.X_OK)").returncode == 0

    def run(self, code, *arguments):
        """Runs Python as him; the completed process, with its output as text."""
        return subprocess.run(
            [sys.executable, "-I", "-c", code, *map(str, arguments)],
            cwd="/",
            preexec_fn=self.become,
            capture_output=True,
            text=True,
            check=False,
            timeout=60,
        )

    def own(self, desk):
        """Gives him a desk with all that is on it."""
        for folder, _, files in os.walk(desk.root):
            os.chown(folder, self.number, self.number)
            for name in files:
                os.chown(os.path.join(folder, name), self.number, self.number)
