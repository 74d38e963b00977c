"""A computer without the display: its boot takes as long with the service installed as without.

The machines' clocks count instructions, so that their times repeat.
"""

import os
import shutil

import pytest

from board.system import System
from test_boot import ask, seconds_until_up

MOST_DELAY_S = 0.5

pytestmark = [
    pytest.mark.skipif(not os.environ.get("BOOTLUME_LONG"), reason="whole systems are booted for a release (--long)"),
    pytest.mark.skipif(os.geteuid() != 0, reason="only root may make the machine's root"),
    pytest.mark.skipif(not shutil.which("qemu-system-x86_64"), reason="qemu-system-x86 is not installed"),
    pytest.mark.xdist_group("booted"),
]


def machine(folder, packages):
    """A machine with these packages and without the display, to be used with "with"."""
    system = System("amd64", folder)
    if packages:
        system.install(packages)
    initramfs = system.initramfs()
    system.finish()
    return system.boot(initramfs=initramfs, traced=False)


def test_the_boot_waits_for_no_display(source, tmp_path):
    packages = sorted((source / "build/packages").glob("*_amd64.deb"))
    packages = [p for p in packages if p.name.startswith(("bootlume_", "bootlume-bin_", "bootlume-tools_"))]
    if not packages:
        pytest.skip("there are no packages: scripts/package makes them")
    with machine(tmp_path / "without", []) as board:
        without = seconds_until_up(board)
    with machine(tmp_path / "with", packages) as board:
        late = seconds_until_up(board) - without
        about = ask(board, "bootlume.service", "LoadState", "UnitFileState", "ConditionResult", "ActiveState")
        assert board.text("systemctl --failed --no-legend --plain") == ""
    shutil.rmtree(tmp_path)  # the disks are large
    print(f"up after {without:.2f} s without the packages, {late:+.2f} s with them")
    assert about == {
        "LoadState": "loaded",
        "UnitFileState": "enabled",
        "ConditionResult": "no",
        "ActiveState": "inactive",
    }
    assert late <= MOST_DELAY_S
