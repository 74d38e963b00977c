"""What the tests on the board share: the machines asked for, one boot of each, the splash on it."""
import pytest

from board import boards
from board_splash import Splash
from desk import LANGUAGE, SOCKET, TRACE_CONFIG


def pytest_addoption(parser):
    parser.addoption("--machine", action="append", default=[], help="a board to run on")
    parser.addoption("--long", action="store_true", help="half an hour of splash, not two minutes")


def pytest_configure(config):
    config.addinivalue_line("markers", "once(name): on one machine only: that one, or else the first")


def pytest_generate_tests(metafunc):
    if "machine" in metafunc.fixturenames:
        machines = metafunc.config.getoption("machine")
        once = metafunc.definition.get_closest_marker("once")
        if once:
            machines = [name for name in machines if name in once.args][:1] or machines[:1]
        # The tests of one machine stay in one process: they share its board.
        metafunc.parametrize(
            "machine", [pytest.param(name, marks=pytest.mark.xdist_group(name)) for name in machines], scope="session"
        )


class Bench:
    """One board at a time: the machine's usual one, or a fresh one that a test will restart."""

    def __init__(self, workshop):
        self.workshop = workshop
        self._board = None

    def usual(self):
        """The machine's board; a new one where a test has left it dead or without an answer."""
        if self._board is not None and (self._board.ended() or not self._board.answers):
            self.clear()
        if self._board is None:
            self._board = self.workshop.boot().__enter__()
        return self._board

    def fresh(self, variant, **options):
        self.clear()
        return self.workshop.boot(variant, **options)

    def clear(self):
        if self._board is not None:
            self._board.__exit__()
            self._board = None


@pytest.fixture(scope="session")
def bench(machine):
    bench = Bench(boards.Workshop(machine))
    yield bench
    bench.clear()


@pytest.fixture
def board(bench):
    return bench.usual()


@pytest.fixture
def splash(board):
    """Starts a splash, and ends it with the test. Traces and language are as the test left them
    only until then."""
    started = []

    def start(*arguments, **environment):
        started.append(Splash(board, *arguments, **environment))
        return started[-1]

    yield start
    if board.ended() or not board.answers:
        return
    for one in started:
        board.run(f"kill -KILL {one.pid}; wait_for test ! -d /proc/{one.pid}")
    board.output(f"rm -f {TRACE_CONFIG} {LANGUAGE} {SOCKET}")


@pytest.fixture
def desk(bench):
    return bench.workshop.reference()
