"""The packages as files: what a distribution's checks say of them, and of the units in them."""

import gzip
import os
import re
import shutil
import subprocess
import sys

import pytest

from desk import DEVICE

MOST_EXPOSURE = 3.0
# Those that start a process. What bootlume-early.service takes over has been started outside of it.
UNITS = (
    "bootlume.service",
    "bootlume-display.service",
    "bootlume-quit.service",
    "bootlume-quit@.service",
    "bootlume-quit-after@.service",
)


@pytest.fixture(scope="session")
def packages(source):
    found = sorted((source / "build/packages").glob("*.deb"))
    if not found:
        pytest.skip("there are no packages: scripts/package makes them")
    return found


@pytest.fixture(scope="session", params=["bootlume", "bootlume-bin", "bootlume-tools", "bootlume-dev"])
def contents(request, packages, tmp_path_factory):
    """(name, unpacked tree) of each package for this machine."""
    machine = subprocess.run(
        ["dpkg", "--print-architecture"], capture_output=True, text=True, check=True
    ).stdout.strip()
    package = next(p for p in packages if re.fullmatch(rf"{request.param}_.*_{machine}[.]deb", p.name))
    tree = tmp_path_factory.mktemp(request.param)
    subprocess.run(["dpkg-deb", "-x", package, tree], check=True)
    return request.param, tree


@pytest.fixture(scope="session")
def units(packages, tmp_path_factory):
    """A root with the service manager's own units and the package's."""
    root = tmp_path_factory.mktemp("root")
    shutil.copytree("/lib/systemd/system", root / "lib/systemd/system", symlinks=True)
    for package in packages:
        if re.match(r"bootlume(-bin)?_.*_amd64", package.name):
            subprocess.run(["dpkg-deb", "-x", package, root], check=True)
    (root / "lib/systemd/system/hmi.service").write_text("[Service]\nExecStart=/bin/sh\n")
    (root / "bin").mkdir()
    for program in ("sh", "systemctl"):
        shutil.copy(f"/bin/{program}", root / "bin")
    for folder in ("lib", "bin", "sbin"):  # merged as on the system
        if not (root / "usr" / folder).exists():
            (root / "usr" / folder).mkdir(parents=True)
    return root


def test_lintian_has_no_error_and_no_warning(packages):
    if not shutil.which("lintian"):
        pytest.skip("lintian is not installed")
    done = subprocess.run(
        ["lintian", "--profile", "debian", "--fail-on", "error,warning", "--allow-root", *packages],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout == ""


def test_every_override_says_why(source):
    for file in (source / "packaging/debian").glob("*.lintian-overrides"):
        lines = file.read_text().splitlines()
        for before, line in zip([""] + lines, lines):
            assert line.startswith("#") or before.startswith("# "), f"{file.name}: {line}"


def test_licence_is_said_in_one_line(contents):
    name, tree = contents
    text = (tree / f"usr/share/doc/{name}/copyright").read_text()
    assert text.count("\n") == 1 and "No licence has been chosen yet." in text


def test_changelog_and_manuals_are_compressed_without_a_time(contents):
    _, tree = contents
    files = list(tree.glob("usr/share/man/*/*")) + list(tree.glob("usr/share/doc/*/changelog*"))
    assert files
    for file in files:
        data = file.read_bytes()
        assert data[:3] == b"\x1f\x8b\x08" and data[3] == 0 and data[4:8] == bytes(4), file
        assert gzip.decompress(data)


def test_programs_are_stripped(contents):
    name, tree = contents
    programs = [p for p in tree.rglob("*") if p.is_file() and p.read_bytes()[:4] == b"\x7fELF"]
    assert bool(programs) == (name in ("bootlume-bin", "bootlume-tools"))
    for program in programs:
        sections = subprocess.run(["readelf", "-SW", program], capture_output=True, text=True, check=True).stdout
        assert ".symtab" not in sections and ".debug_info" not in sections, program


@pytest.mark.parametrize(
    "unit",
    [
        "bootlume.service",
        "bootlume-display.service",
        "bootlume-early.service",
        "bootlume-quit.service",
        "bootlume-quit@multi-user.service",
        "bootlume-quit-after@hmi.service",
    ],
)
def test_systemd_finds_nothing_to_say_about_a_unit(units, unit):
    if not shutil.which("systemd-analyze"):
        pytest.skip("systemd-analyze is not installed")
    done = subprocess.run(
        ["systemd-analyze", "verify", "--man=no", f"--root={units}", unit], capture_output=True, text=True, check=False
    )
    said = [line for line in done.stderr.splitlines() if "bootlume" in line]
    assert done.returncode == 0 and said == [], done.stderr


@pytest.mark.parametrize("unit", UNITS)
def test_unit_is_closed_enough(source, unit, capsys):
    if not shutil.which("systemd-analyze"):
        pytest.skip("systemd-analyze is not installed")
    done = subprocess.run(
        ["systemd-analyze", "security", "--offline=true", "--no-pager", source / "packaging/systemd" / unit],
        capture_output=True,
        text=True,
        check=True,
    )
    exposure = float(re.search(r"Overall exposure level for \S+: ([0-9.]+)", done.stdout)[1])
    with capsys.disabled():
        print(f"\nexposure of {unit}: {exposure}", end="")
    assert exposure <= MOST_EXPOSURE


def test_service_waits_for_the_device_that_the_program_opens(source):
    unit = (source / "packaging/systemd/bootlume.service").read_text()
    assert f"ConditionPathExists={DEVICE}\n" in unit
    display = (source / "packaging/systemd/bootlume-display.service").read_text()
    assert f"ExecStart=/bin/systemctl start {DEVICE}\n" in display
    assert f"ConditionPathExists=|{DEVICE}\n" in display
    header = (source / "bootlume/src/display/surface.h").read_text()
    assert DEVICE in header
    assert "Before=sockets.target\n" in unit and "Restart=no\n" in unit


def test_what_ends_the_splash_does_so_alike(source):
    """The three units differ in when they do it."""
    texts = [(source / "packaging/systemd" / unit).read_text() for unit in UNITS if "quit" in unit]
    assert len({text.partition("[Service]")[2].partition("[Install]")[0].strip() for text in texts}) == 1


def test_a_program_finds_the_client_s_header_and_module(contents, tmp_path):
    name, tree = contents
    assert (tree / "usr/include").exists() == (name == "bootlume-dev")
    if name == "bootlume-dev":
        environment = {**os.environ, "PKG_CONFIG_PATH": str(tree / "usr/share/pkgconfig")}
        flags = subprocess.run(
            ["pkg-config", "--cflags", "bootlume-client"], env=environment, capture_output=True, text=True, check=True
        ).stdout.split()
        code = "#include <bootlume-client.h>\nint main(void) { return bootlume_quit() == BOOTLUME_SENT; }\n"
        subprocess.run(["gcc", *flags, "-x", "c", "-o", tmp_path / "program", "-"], input=code, text=True, check=True)
    modules = list(tree.glob("usr/lib/python3/dist-packages/*.py"))
    assert [module.name for module in modules] == (["bootlume.py"] if name == "bootlume-bin" else [])
    for module in modules:
        environment = {**os.environ, "PYTHONPATH": str(module.parent)}
        subprocess.run([sys.executable, "-B", "-c", "import bootlume; bootlume.Busy"], env=environment, check=True)
