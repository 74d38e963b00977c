"""The prompt on the board, as `scripts/board --shell` gives it."""
import contextlib
import re
import signal
import subprocess
import sys
import threading

import pytest

from desk import SOURCE, pictures, python_environment
from board.channel import PATIENCE


@contextlib.contextmanager
def prompt_on(machine, *texts):
    """The running command; it ends with the test, however that ends."""
    with subprocess.Popen(
        [sys.executable, "-m", "board", "shell", machine, *texts],
        cwd=SOURCE,
        env=python_environment(),
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
    ) as prompt:
        limit = threading.Timer(PATIENCE, prompt.send_signal, [signal.SIGINT])
        limit.start()
        try:
            yield prompt
        finally:
            limit.cancel()
            prompt.send_signal(signal.SIGINT)


def say(prompt, line):
    prompt.stdin.write(line.encode() + b"\n")
    prompt.stdin.flush()


def hears(prompt, pattern):
    """Reads until the pattern has come; False where the command ends before."""
    seen = b""
    while not re.search(pattern, seen):
        more = prompt.stdout.read1()
        if not more:
            return False
        seen += more
    return True


@pytest.mark.once
def test_a_picture_of_the_screen_is_written_on_the_host_on_request(bench, desk, machine):
    turn = desk.page("A", "B")
    bench.clear()
    picture = bench.workshop.work / "screen.png"
    picture.unlink(missing_ok=True)
    with prompt_on(machine, "A", "B") as prompt:
        assert hears(prompt, rb"board# ")
        say(prompt, "until [ -S /tmp/.bootlume ] && drawn; do usleep 100000; done; screenshot")
        assert hears(prompt, rb"screen\.png")
        say(prompt, "poweroff -f")
        assert hears(prompt, rb"reboot: (Power down|System halted)")
        assert prompt.wait(PATIENCE) == 0
    assert picture.read_bytes() in [pictures.png(page) for page in turn]
