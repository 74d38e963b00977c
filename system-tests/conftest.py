"""Fixtures of the system tests: the built program on a desk of its own for every test."""

import os
import shlex
from pathlib import Path

import pytest

from unprivileged import User
from virtual_device import Desk

SOURCE = Path(__file__).resolve().parent.parent

# Only a build with sanitizers looks at these.
os.environ.setdefault("LSAN_OPTIONS",
                      f"suppressions={SOURCE / 'cmake/leaks.supp'}:print_suppressions=0")
os.environ.setdefault("TSAN_OPTIONS", f"suppressions={SOURCE / 'cmake/races.supp'}")


def pytest_addoption(parser):
    group = parser.getgroup("bootlume")
    group.addoption("--build-dir", default="build/release",
                    help="folder with bin/bootlume and lib/libvirtual-device.so (%(default)s)")
    group.addoption("--run-prefix", default="",
                    help="words before the program, for example 'qemu-arm-static -L SYSROOT'")
    group.addoption("--run-prefix-env", default="-E",
                    help="how the prefix takes a variable for the program (%(default)s)")


@pytest.fixture(scope="session")
def build_dir(pytestconfig):
    """The absolute path of the build; the tests end at once where the program is not built."""
    folder = (SOURCE / pytestconfig.getoption("--build-dir")).resolve()
    for product in ("bin/bootlume", "lib/libvirtual-device.so"):
        if not (folder / product).exists():
            pytest.exit(f"{folder / product} is not there: build it, or name another --build-dir",
                        returncode=2)
    return folder


@pytest.fixture(scope="session")
def run_prefix(pytestconfig):
    """The words before the program; empty where the machine runs it itself."""
    return shlex.split(pytestconfig.getoption("--run-prefix"))


@pytest.fixture
def desk(build_dir, run_prefix, pytestconfig):
    """A root folder with the program's fixed paths; what runs on it ends with the test."""
    prefix_env = pytestconfig.getoption("--run-prefix-env") if run_prefix else None
    with Desk(bootlume=build_dir / "bin/bootlume", library=build_dir / "lib/libvirtual-device.so",
              run_prefix=run_prefix, prefix_env=prefix_env) as made:
        yield made


@pytest.fixture
def splash(desk):
    """Starts a bootlume: splash(*arguments, env=None, refresh=..., faults=...), see Desk.start."""
    return desk.start


@pytest.fixture
def unprivileged(build_dir, run_prefix):
    """A user without any rights; see unprivileged.User. Only root can become somebody else."""
    user = User()
    if os.geteuid() != 0:
        pytest.skip("only root can become another user")
    if run_prefix or not user.can_run(build_dir / "bin/bootlume"):
        pytest.skip(f"user {user.number} cannot run what lies in {build_dir}")
    return user


@pytest.fixture
def preload(build_dir, desk):
    """preload("cairo-recorder"): the environment that loads the build's libraries of these names
    behind the virtual device."""
    def environment(*names):
        libraries = [build_dir / f"lib/lib{name}.so" for name in names]
        missing = [str(library) for library in libraries if not library.exists()]
        assert not missing, f"not built: {missing}"
        return {"LD_PRELOAD": ":".join([desk.environment()["LD_PRELOAD"], *map(str, libraries)])}
    return environment
