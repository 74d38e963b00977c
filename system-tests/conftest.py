"""Fixtures of the system tests: the built program on a desk of its own for every test."""

import os
import shlex
from pathlib import Path

import pytest

from clocks import Clocks
from desk import SOURCE, Desk, sanitizer_runtimes
from unprivileged import User

# Only a build with sanitizers looks at these.
os.environ.setdefault("LSAN_OPTIONS", f"suppressions={SOURCE / 'cmake/leaks.supp'}:print_suppressions=0")
os.environ.setdefault("TSAN_OPTIONS", f"suppressions={SOURCE / 'cmake/races.supp'}")


def pytest_addoption(parser):
    group = parser.getgroup("bootlume")
    group.addoption(
        "--run-prefix", default="", help="words before the program, for example 'qemu-arm-static -L SYSROOT'"
    )
    group.addoption(
        "--run-prefix-env", default=None, help="how the prefix takes a variable that it must not see itself"
    )
    group.addoption(
        "--preload-dir",
        default=None,
        help="where the program's loader finds the build's libraries; $LIB in it is the"
        " loader's own word for its architecture (BUILD_DIR/lib)",
    )


@pytest.fixture(scope="session")
def run_prefix(pytestconfig):
    """The words before the program; empty where the machine runs it itself."""
    return shlex.split(pytestconfig.getoption("--run-prefix"))


@pytest.fixture(scope="session")
def preload_dir(build_dir, pytestconfig):
    return Path(pytestconfig.getoption("--preload-dir") or build_dir / "lib").absolute()


@pytest.fixture(scope="session")
def self_contained(build_dir):
    """Whether the program holds its libraries itself."""
    return b"libcairo.so" not in (build_dir / "bin/bootlume").read_bytes()


@pytest.fixture(scope="session")
def products(build_dir, preload_dir, run_prefix, pytestconfig):
    """What a Desk needs to know of the build and of how its program is run."""
    return {
        "bootlume": build_dir / "bin/bootlume",
        "library": preload_dir / "libvirtual-device.so",
        "behind": [preload_dir / "libpatient-end.so"],
        "run_prefix": run_prefix,
        "prefix_env": pytestconfig.getoption("--run-prefix-env"),
    }


@pytest.fixture
def desk(products):
    """A root folder with the program's fixed paths; what runs on it ends with the test."""
    with Desk(**products) as made:
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
    for place in (build_dir / "bin/bootlume", *filter(os.path.isdir, run_prefix)):
        if not user.can_run(place):
            pytest.skip(f"user {user.number} cannot use {place}")
    return user


@pytest.fixture
def preload(build_dir, preload_dir, desk, self_contained):
    """preload("cairo-recorder"): the environment that loads the build's libraries of these names
    behind the virtual device; `first`: those that come before it."""

    def environment(*names, first=()):
        missing = [name for name in (*first, *names) if not (build_dir / f"lib/lib{name}.so").exists()]
        assert not missing, f"not built: {missing}"
        if "cairo-recorder" in names and self_contained:
            pytest.skip("a self-contained program's calls of cairo cannot be recorded: its pixels are compared")
        before, behind = ([preload_dir / f"lib{name}.so" for name in some] for some in (first, names))
        return {"LD_PRELOAD": ":".join(map(str, [*before, desk.environment()["LD_PRELOAD"], *behind]))}

    return environment


@pytest.fixture
def clocks(desk, preload, build_dir):
    """Clocks that a splash obeys which is started with clocks.environment; see clocks.Clocks."""
    if sanitizer_runtimes(build_dir / "bin/bootlume"):
        pytest.skip("a sanitizer has clocks of its own")
    return Clocks(desk.root / "clocks", preload("test-clocks"))
