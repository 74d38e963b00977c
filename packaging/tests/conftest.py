"""What the packaging tests share: the tree, the build, and the driver of the program."""

import sys
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(SOURCE / "system-tests"))


def pytest_addoption(parser):
    parser.getgroup("bootlume").addoption(
        "--build-dir", default="build/release",
        help="folder with bin/bootlume and lib/libvirtual-device.so (%(default)s)")


@pytest.fixture(scope="session")
def build_dir(pytestconfig):
    folder = (SOURCE / pytestconfig.getoption("--build-dir")).resolve()
    if not (folder / "bin/bootlume").exists():
        pytest.exit(f"{folder}/bin/bootlume is not there: build it first", returncode=2)
    return folder


@pytest.fixture(scope="session")
def source():
    return SOURCE
