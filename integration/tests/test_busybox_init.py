"""A machine whose init is BusyBox's: the lines of the example in its inittab, on the kernel's video driver."""

import shutil

import pytest

from board import emulated, image, machines, system
from desk import SOURCE

INIT = SOURCE / "packaging/init"


@pytest.fixture(scope="module")
def machine(build_dir, tmp_path_factory):
    if not shutil.which("qemu-system-x86_64"):
        pytest.skip("qemu-system-x86 is not installed")
    tree = system.tree("amd64")
    amd64 = machines.MACHINES["amd64"]
    work = tmp_path_factory.mktemp("busybox")
    made = image.Image(amd64, build_dir, {amd64.tree: tree, amd64.root: tree}, work)
    root = made.make()
    (root / "usr/sbin").mkdir(exist_ok=True)
    shutil.move(root / "usr/bin/bootlume", root / "usr/sbin/bootlume")
    shutil.copy2(build_dir / "bin/bootlumectl", root / "usr/bin")
    for folder in ("etc/init.d", "etc/default", "var/run"):
        (root / folder).mkdir(parents=True, exist_ok=True)
    shutil.copy2(INIT / "bootlume", root / "etc/init.d")
    (root / "etc/default/bootlume").write_text('BOOTLUME_OPTIONS=\'"A title" "A line."\'\nunset FONTCONFIG_SYSROOT\n')
    with (root / "etc/inittab").open("a", encoding="utf-8") as table:
        table.write((INIT / "inittab").read_text())
    with emulated.Board(amd64, tree, made.initramfs("plain"), work) as board:
        yield board


def test_the_splash_is_shown_seen_and_ended(machine):
    script = "/etc/init.d/bootlume"
    machine.output("PATH=/usr/lib/board:$PATH wait_for bootlumectl status")
    assert machine.run(f"{script} status") == (0, b"bootlume runs\n")
    command = machine.output("tr '\\0' '|' </proc/$(cat /var/run/bootlume.pid)/cmdline")
    assert command == b"/usr/sbin/bootlume|A title|A line.|"
    machine.output("PATH=/usr/lib/board:$PATH wait_for drawn")
    assert machine.run(f"{script} stop") == (0, b"Stopping bootlume: OK\n")
    assert machine.run(f"{script} status") == (3, b"bootlume does not run\n")
    machine.output(f"{script} start; PATH=/usr/lib/board:$PATH wait_for bootlumectl status; bootlumectl quit")
    assert machine.run(f"{script} status")[0] == 3
