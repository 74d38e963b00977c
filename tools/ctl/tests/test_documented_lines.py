"""Every line of the documents that calls bootlumectl, with a splash that answers, one that is stopped, and none."""

import re
import subprocess

import pytest

from ctl_desk import SECONDS, stopped
from desk import BUILD, SOURCE, wait_until_running

TEXTS = [SOURCE / "README.md", *(SOURCE / "docs").glob("*.md"), *(SOURCE / "packaging/man").glob("*.scd")]
LINE = re.compile(r"^(?:\$ )?(bootlumectl [a-z].*)$", re.MULTILINE)
# As a reader sees a manual's source: there a backslash takes the next character as it is.
LINES = {
    re.sub(r"\\(.)", r"\1", line) if text.suffix == ".scd" else line
    for text in TEXTS
    for line in LINE.findall(text.read_text())
}
# It waits for ever, as its line in the manual says.
ENDLESS = "bootlumectl quit --wait --timeout 0"


def expected(line, splash):
    """The exit status of a line."""
    command, options = line.split()[1], line.split()[2:]
    if command in ("trace", "report") or splash == "answers":
        return 0
    if splash == "stopped":
        return 0 if command == "text" else 4
    return 0 if "--if-running" in options else 3


def test_there_are_lines_for_every_command():
    assert {line.split()[1] for line in LINES} == {"quit", "text", "status", "trace", "report"}
    assert ENDLESS in LINES


@pytest.mark.parametrize("splash", ["answers", "stopped", "none"])
@pytest.mark.parametrize("line", sorted(LINES - {ENDLESS}))
def test_a_line_ends_in_time_with_its_status_and_says_what_to_do(desk, line, splash):
    desk.trace_config("bootlume 4 0 0")
    if splash != "none":
        running = wait_until_running(desk.start())
    script = f'bootlumectl() {{ {BUILD}/bin/bootlumectl --root {desk.root} "$@"; }}\n' + line.replace(
        "/tmp/", f"{desk.root}/"
    )

    def run():
        return subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=SECONDS, check=False)

    if splash == "stopped":
        with stopped(running):
            done = run()
    else:
        done = run()
    assert done.returncode == expected(line, splash), done.stderr
    if done.returncode != 0:
        assert done.stdout == ""
        assert done.stderr.startswith("bootlumectl: ") and done.stderr.count("\n") == 1


def test_the_line_that_waits_for_ever_ends_with_the_splash(desk):
    client = subprocess.Popen([BUILD / "bin/bootlumectl", "--root", desk.root, *ENDLESS.split()[1:]])
    with stopped(wait_until_running(desk.start())):
        assert client.poll() is None
    assert client.wait(SECONDS) == 0
