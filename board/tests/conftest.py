"""What the tests on the board share: the machines asked for, one boot of each, the splash on it."""
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from board import boards  # noqa: E402  (the path comes first)


def pytest_addoption(parser):
    parser.addoption("--machine", action="append", default=[], help="a board to run on")
    parser.addoption("--long", action="store_true", help="half an hour of splash, not two minutes")


def pytest_generate_tests(metafunc):
    if "machine" in metafunc.fixturenames:
        metafunc.parametrize("machine", metafunc.config.getoption("machine"), scope="session")


@pytest.fixture(scope="session")
def workshop(machine):
    return boards.Workshop(machine)


@pytest.fixture(scope="session")
def board(workshop):
    """The machine's board, booted once for all tests that leave it running."""
    with workshop.boot() as board:
        yield board
