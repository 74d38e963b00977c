"""What all tests share that drive the built program."""

import signal

import pytest

from desk import SOURCE


def pytest_configure():
    """A shell that starts the tests in the background has them ignore these, and all that they start, too."""
    for number in (signal.SIGHUP, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    signal.signal(signal.SIGINT, signal.default_int_handler)


def pytest_addoption(parser):
    parser.getgroup("bootlume").addoption(
        "--build-dir",
        default="build/release",
        help="folder with bin/bootlume and lib/libvirtual-device.so (%(default)s)",
    )


@pytest.fixture(scope="session")
def build_dir(pytestconfig):
    """The absolute path of the build; the tests end at once where the program is not built."""
    folder = (SOURCE / pytestconfig.getoption("--build-dir")).resolve()
    for product in ("bin/bootlume", "lib/libvirtual-device.so"):
        if not (folder / product).exists():
            pytest.exit(f"{folder / product} is not there: build it, or name another --build-dir", returncode=2)
    return folder
