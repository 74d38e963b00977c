"""Each example of docs/protocol.md, with a splash that answers, one that is stopped, a full one, and none."""

import os
import re
import subprocess
import sys

import pytest

from ctl_desk import SECONDS, full, stopped
from desk import SOCKET, SOURCE, wait_until, wait_until_running

CLIENT = SOURCE / "tools/client"
FLAGS = ["-Wall", "-Wextra", "-Werror", "-O2", "-I", str(CLIENT)]
FENCE = re.compile(r"^```(c|cpp|python)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
EXAMPLES = [(mark, text) for mark, text in FENCE.findall((SOURCE / "docs/protocol.md").read_text())]
QT = ["Qt5Quick"]


def pkg_config(*words):
    done = subprocess.run(["pkg-config", *words], capture_output=True, text=True, check=False)
    return done.stdout.split() if done.returncode == 0 else None


def made(mark, text, folder):
    """The command that runs an example; it is compiled where that is needed."""
    source = folder / f"example.{mark}"
    source.write_text(text)
    if mark == "python":
        return [sys.executable, source]
    compiler = {"c": ["gcc", "-std=gnu99"], "cpp": ["g++", "-std=c++17", "-fPIC"]}[mark]
    libraries = []
    if "QQuick" in text:
        libraries = pkg_config("--cflags", "--libs", *QT)
        if libraries is None:
            pytest.skip("Qt Quick is not installed (qtdeclarative5-dev)")
    subprocess.run([*compiler, *FLAGS, "-o", folder / "example", source, *libraries], check=True)
    return [folder / "example"]


def environment(desk):
    return {**os.environ, "BOOTLUME_SOCKET": str(desk.path(SOCKET)), "PYTHONPATH": str(CLIENT)}


CONSOLE = [number for number, (mark, _) in enumerate(EXAMPLES) if mark != "cpp"]


@pytest.fixture(params=CONSOLE, ids=lambda number: f"{EXAMPLES[number][0]}-{number}")
def example(request, desk, tmp_path):
    """Runs the example; the finished process with its text."""
    mark, text = EXAMPLES[request.param]
    command = made(mark, text, tmp_path)

    def run():
        return subprocess.run(
            command, env=environment(desk), capture_output=True, text=True, timeout=SECONDS, check=False
        )

    run.ends_it = "quit" in text
    return run


def test_there_is_an_example_in_each_language():
    assert [mark for mark, _ in EXAMPLES] == ["c", "cpp", "python", "python"]


def test_an_example_reaches_a_splash_that_answers(desk, example):
    desk.trace_config("bootlume 5 0 0")
    splash = wait_until_running(desk.start())
    done = example()
    assert (done.returncode, done.stderr) == (0, "")
    splash.wait_for_trace("Got Message from socket, command = Brem K5 Start;Network\nPlease wait.")
    assert (splash.wait() if example.ends_it else splash.quit()) == 0


def test_an_example_goes_on_without_a_splash(example):
    done = example()
    assert done.returncode == 0  # it is 1 if the example has waited in vain


def test_an_example_does_not_hang_with_a_stopped_splash(desk, example):
    with stopped(wait_until_running(desk.start())) as splash:
        for _ in range(2):
            assert example().returncode == (1 if example.ends_it else 0)
    assert (splash.wait() if example.ends_it else splash.quit()) == 0


def test_an_example_does_not_hang_with_a_full_queue(desk, example):
    with full(desk):
        assert example().returncode == (1 if example.ends_it else 0)


QML = """
import QtQuick 2.0
Rectangle {
    property int ticks: 0
    width: 480; height: 800
    Timer { interval: 50; repeat: true; running: true; onTriggered: console.log("tick " + ++parent.ticks) }
}
"""


@pytest.fixture(scope="module")
def qt_program(tmp_path_factory):
    folder = tmp_path_factory.mktemp("qt")
    (folder / "main.qml").write_text(QML)
    return made(*next(example for example in EXAMPLES if example[0] == "cpp"), folder)[0]


@pytest.fixture
def qt_example(desk, qt_program):
    """Starts the Qt example; the process, with its log in a file."""
    log = desk.root / "qt.log"
    with log.open("w") as output, subprocess.Popen(
        [qt_program],
        cwd=qt_program.parent,
        stderr=output,
        env={**environment(desk), "QT_QPA_PLATFORM": "offscreen", "QT_QUICK_BACKEND": "software"},
    ) as program:
        yield lambda count: wait_until(
            lambda: f"tick {count}\n" in log.read_text() or died(program, log), f"tick {count}"
        )
        program.kill()


def died(program, log):
    assert program.poll() is None, log.read_text()


def test_the_qt_example_ends_the_splash_once_it_is_shown(desk, qt_program, request):
    splash = wait_until_running(desk.start())
    request.getfixturevalue("qt_example")
    assert splash.wait() == 0


def test_the_qt_example_goes_on_with_a_stopped_splash(desk, request):
    with stopped(wait_until_running(desk.start())) as splash:
        tick = request.getfixturevalue("qt_example")
        tick(60)  # later than its last try
    assert splash.wait() == 0


def test_the_qt_example_goes_on_with_a_full_queue(desk, request):
    with full(desk):
        tick = request.getfixturevalue("qt_example")
        tick(60)


def test_the_qt_example_goes_on_without_a_splash(qt_example):
    qt_example(5)
