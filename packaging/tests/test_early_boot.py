"""The splash before the init system, from the kernel's start on, in whole systems on emulated machines.

The machines' clocks count instructions, so that their times repeat. Each is booted once for several tests,
which therefore run in their order, in one process.
"""

import os
import shutil

import pytest

from board.system import SETTINGS, SplashSystem
from desk import SOURCE
from test_boot import RESTART, ask, seconds_until_up, wait_for

MACHINES = {"amd64": "qemu-system-x86_64", "armhf": "qemu-system-arm"}
WAYS = ("bootlume-init", "initramfs")
FAULTS = ("driver", "fonts", "settings", "run")
PATIENT = "SPLASH_TIMEOUT=900\nSPLASH_TIMEOUT_HARD=1000\n"
IMPATIENT = "SPLASH_TIMEOUT=40\nSPLASH_TIMEOUT_HARD=80\n"
GARBAGE = "\x01\n'\"$(reboot -f)\nBOOTLUME_DRIVER=vivid\nBOOTLUME_NODE=/dev/video1\nBOOTLUME_OPTIONS='\"Brem K5\n\\"
LOGGED = ("printk.devkmsg=on", "log_buf_len=8M")
MOST_DELAY_S = 2
LONGEST_GAP_MS = 200
UNABLE = "the device cannot reboot itself"
REBOOT = f"#!/bin/sh\necho '<1>{UNABLE}' >/dev/kmsg\nexit 3\n"
SPLASHES = "find /proc/[0-9]* -maxdepth 1 -name exe -lname /usr/sbin/bootlume 2>/dev/null; true"
INITRAMFS_SCRIPTS = {
    "hooks/fault": "fault-hook",
    "scripts/init-bottom/early-text": "early-initramfs",
    "scripts/init-top/fault": "fault-initramfs",
    "scripts/init-bottom/fault": "fault-initramfs-root",
}

pytestmark = [
    pytest.mark.skipif(not os.environ.get("BOOTLUME_LONG"), reason="whole systems are booted for a release (--long)"),
    pytest.mark.skipif(os.geteuid() != 0, reason="only root may make the machine's root"),
    pytest.mark.xdist_group("booted"),
]


def furnish(system):
    """What the tests need besides the packages."""
    boot = SOURCE / "packaging/tests/boot"
    for name in ("fault", "fault-init"):
        system.put(f"usr/lib/board/{name}", (boot / name).read_text(), 0o755)
    system.put("usr/lib/board/garbage", GARBAGE)
    system.put("usr/lib/board/impatient", SETTINGS + IMPATIENT)
    system.put("usr/lib/board/early-init", (boot / "early-init").read_text(), 0o755)
    for name, source in INITRAMFS_SCRIPTS.items():
        system.put(f"usr/share/initramfs-tools/{name}", (boot / source).read_text(), 0o755)
    system.put("etc/systemd/system/ready.target", (boot / "ready.target").read_text())
    system.put("opt/userdata/trace_config", "bootlume 5 0 0\n")
    system.put("usr/sbin/vrx_reboot", REBOOT, 0o755)
    system.run("systemctl enable bootlume-quit@ready.service; ln -sf /usr/lib/board/early-init /sbin/init")


@pytest.fixture(scope="module", params=MACHINES)
def system(request, source, tmp_path_factory):
    if not shutil.which(MACHINES[request.param]):
        pytest.skip(f"{MACHINES[request.param]} is not installed")
    if not list((source / "build/packages").glob(f"bootlume_*_{request.param}.deb")):
        pytest.skip("there are no packages: scripts/package makes them")
    folder = tmp_path_factory.mktemp("early")
    made = SplashSystem(request.param, folder / "system", settings=SETTINGS + PATIENT, furnish=furnish)
    made.finish()
    yield made
    shutil.rmtree(folder)  # the disk is large


@pytest.fixture(scope="module", params=WAYS)
def way(request, system):
    if request.param == "initramfs" and not system.on_disk:
        pytest.skip("this machine is its kernel's memory disk: it has no other root to change to")
    return request.param


@pytest.fixture(scope="module")
def machine(system, way):
    """A machine that has come up as far as it goes by itself, with a splash that was started early."""
    with system.start(way, *LOGGED) as board:
        board.run("systemctl is-system-running --wait")
        yield board


def start_with(system, way, what, *words):
    """A machine on which something is other than it should be: see the script "fault"."""
    return system.start("fault-init" if way == "bootlume-init" else way, f"fault={what}", *words)


def failed_units(board):
    return board.text("systemctl --failed --no-legend --plain")


def test_the_splash_was_taken_over_and_nothing_failed(machine):
    pid = machine.text("cat /run/bootlume/pid").strip()
    assert ask(machine, "bootlume-early.service", "ActiveState", "MainPID") == {"ActiveState": "active", "MainPID": pid}
    assert ask(machine, "bootlume.service", "ActiveState") == {"ActiveState": "inactive"}
    assert machine.text(f"cat /proc/{pid}/cgroup") == "0::/system.slice/bootlume-early.service\n"
    assert machine.text(f"readlink /proc/{pid}/root") == "/\n"
    assert machine.text(SPLASHES) == f"/proc/{pid}/exe\n"
    assert failed_units(machine) == ""


def test_it_was_started_before_the_init_system(machine):
    pid = machine.text("cat /run/bootlume/pid").strip()
    assert "/run/bootlume" not in machine.text("cat /proc/mounts")
    assert int(pid) < int(machine.text("pgrep -o systemd-journal"))


def test_a_text_reached_it_before_and_reaches_it_after_the_switch(machine, way):
    before = "before the real root" if way == "initramfs" else "before the init system"
    assert before in machine.text("dmesg | grep 'Got Message'")
    machine.output("bootlumectl text 'Brem K5' 'after the switch'")
    wait_for(machine, "sh -c 'dmesg | grep \"after the switch\"'")


def test_only_root_may_send_to_it(machine):
    assert machine.text("stat -L -c '%A %U' /tmp/.bootlume") == "srw------- root\n"
    status, _ = machine.run("setpriv --reuid=65534 --regid=65534 --clear-groups bootlumectl text A B")
    assert status != 0


def test_it_found_a_font_cache(machine):
    look = "find /var/cache/fontconfig -name '*.cache-*' -printf '%f %T@\\n' | sort"
    found = machine.text(look)
    # One that is missing or does not fit is made anew now.
    machine.output("FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig fc-match x")
    assert found and machine.text(look) == found


def test_the_display_never_waited_long_for_a_picture(machine):
    machine.run("mount -t tracefs none /sys/kernel/tracing")
    shown = machine.text("sed -n 's/.* \\([0-9.]*\\): shown:.*/\\1/p' /sys/kernel/tracing/trace").split()
    gaps = [1000 * (float(after) - float(before)) for before, after in zip(shown, shown[1:])]
    assert len(gaps) > 50 and max(gaps) <= LONGEST_GAP_MS


def test_it_is_ended_when_its_target_is_reached_and_leaves_nothing_behind(machine):
    machine.output("systemctl start ready.target")
    wait_for(machine, "sh -c '! systemctl --quiet is-active bootlume-early.service'")
    about = ask(machine, "bootlume-early.service", "ActiveState", "Result", "ExecMainStatus", "NRestarts")
    assert about == {"ActiveState": "inactive", "Result": "success", "ExecMainStatus": "0", "NRestarts": "0"}
    assert failed_units(machine) == ""
    assert machine.text(SPLASHES) == ""
    assert machine.run("test -e /run/bootlume/pid")[0] == 1
    assert "bootlume" not in machine.text("cat /proc/mounts")


def test_the_machine_is_shut_down_in_order(machine):
    machine.post("systemctl poweroff")
    assert machine.wait_for_end() == 0
    assert UNABLE not in machine.console_text()


def test_an_armed_splash_reboots_a_system_that_hangs(system, way):
    with start_with(system, way, "hang") as board:
        board.run("systemctl is-system-running --wait")
        assert ask(board, "bootlume-early.service", "ActiveState") == {"ActiveState": "active"}
        assert board.wait_for_console(RESTART), board.console_text()[-3000:]
        assert board.wait_for_end() == 0
        assert UNABLE in board.console_text()


@pytest.fixture(scope="module")
def seconds_without(system):
    """When the system is up without any splash."""
    if not system.on_disk:
        pytest.skip("the other machine shows it")
    with system.start("service", "systemd.mask=bootlume.service") as board:
        return seconds_until_up(board)


@pytest.mark.parametrize("fault", FAULTS)
def test_a_fault_costs_two_seconds_at_most(system, way, seconds_without, fault):
    with start_with(system, way, fault, "systemd.mask=bootlume.service") as board:
        late = seconds_until_up(board) - seconds_without
        print(f"{way}, {fault}: {late:+.2f} s")
        assert failed_units(board) == ""
        assert board.run("mountpoint -q /tmp")[0] != 0
        # Only without fonts is there something to show.
        left = board.text(f"ls -d /run/bootlume 2>/dev/null; {SPLASHES}").split()
        assert len(left) == (2 if fault == "fonts" else 0), left
    assert late <= MOST_DELAY_S
