"""The service under its real service manager, from the kernel's start on, on a real video driver.

Each machine is booted once for several tests, which therefore run in their order, in one process.
"""

import os
import re
import shutil

import pytest

import booted
from board.reference import Reference
from desk import SOURCE, pictures
from test_documented_commands import command_blocks
from test_installation import INSTALL, CleanRoot

pytestmark = [
    pytest.mark.skipif(os.geteuid() != 0, reason="only root may make the machine's root"),
    pytest.mark.skipif(not shutil.which("qemu-system-x86_64"), reason="qemu-system-x86 is not installed"),
    pytest.mark.xdist_group("booted"),
]

DEVICE_UNIT = r"dev-v4l-by\x2dpath-platform\x2dimx\x2dipuv3\x2dovl.5\x2dvideo\x2dindex0.device"
FONTS = SOURCE / "packaging/fontconfig/etc/fonts/fonts.conf"
TEXTS = ("Brem K5 Start", "The system is starting.\\nPlease wait.")
AFTER_SLOW = "bootlume-quit-after@slow.service"
RESTART = "reboot: Restarting system"
FOR_MANAGER = re.compile(r"^ *(systemctl|journalctl|find /dev) |/etc/(systemd|default)/", re.MULTILINE)


@pytest.fixture(scope="module")
def installed(source, tmp_path_factory):
    packages = sorted((source / "build/packages").glob("*_amd64.deb"))
    packages = [p for p in packages if p.name.startswith(("bootlume_", "bootlume-bin_"))]
    if not packages:
        pytest.skip("there are no packages: scripts/package makes them")
    folder = tmp_path_factory.mktemp("boot")
    root = CleanRoot("amd64", packages, folder)
    done = root.run(INSTALL)
    assert done.returncode == 0, done.stderr
    yield booted.Installed(root, folder)
    shutil.rmtree(folder)  # the disk is large


@pytest.fixture(scope="module")
def machine(installed):
    """A machine that has come up as far as it goes by itself."""
    with installed.boot() as board:
        board.run("systemctl is-system-running --wait")
        yield board


def ask(board, unit, *names):
    """Properties of a unit, by name."""
    said = board.text(f"systemctl show '{unit}' --property={','.join(names)}")
    return dict(line.split("=", 1) for line in said.splitlines() if line)


def seconds_until_up(board):
    board.run("systemctl is-system-running --wait")
    return int(ask(board, "multi-user.target", "ActiveEnterTimestampMonotonic").popitem()[1]) / 1e6


def wait_for(board, condition):
    board.output(f"PATH=/usr/lib/board:$PATH wait_for {condition}")


def reference(build_dir, installed):
    return Reference(build_dir, installed.root, False, FONTS)


def wait_for_answer(board):
    wait_for(board, "bootlumectl status")


def start(board):
    board.output("systemctl reset-failed bootlume.service; systemctl start bootlume.service")
    wait_for_answer(board)
    wait_for(board, "drawn")


def assert_ended_in_order(board):
    wait_for(board, "sh -c '! systemctl --quiet is-active bootlume.service'")
    about = ask(board, "bootlume.service", "ActiveState", "Result", "ExecMainStatus", "ExecMainCode", "NRestarts")
    assert about == {
        "ActiveState": "inactive",
        "Result": "success",
        "ExecMainCode": "1",
        "ExecMainStatus": "0",
        "NRestarts": "0",
    }


def test_the_boot_is_complete_and_nothing_failed(machine):
    assert machine.text("systemctl --failed --no-legend --plain") == ""
    assert ask(machine, "bootlume.service", "ActiveState") == {"ActiveState": "active"}


def test_it_starts_after_its_device_and_before_the_sockets(machine):
    begin = int(ask(machine, "bootlume.service", "ExecMainStartTimestampMonotonic").popitem()[1])
    device = int(ask(machine, DEVICE_UNIT, "ActiveEnterTimestampMonotonic").popitem()[1])
    sockets = int(ask(machine, "sockets.target", "ActiveEnterTimestampMonotonic").popitem()[1])
    assert 0 < device <= begin <= sockets


def test_its_socket_is_not_among_what_is_cleared_at_the_start(machine):
    begin = int(ask(machine, "bootlume.service", "ExecMainStartTimestampMonotonic").popitem()[1])
    cleared = int(ask(machine, "systemd-tmpfiles-setup.service", "ExecMainExitTimestampMonotonic").popitem()[1])
    assert 0 < cleared <= begin
    assert machine.text("stat -c '%A %U' /tmp/.bootlume") == "srw------- root\n"


def test_the_display_shows_its_page(machine, build_dir, installed):
    wait_for(machine, "drawn")
    shown = machine.output("PATH=/usr/lib/board:$PATH; screen 1 /run/picture && cat /run/picture")
    assert shown[-pictures.SIZE :] in reference(build_dir, installed).page()


def test_root_is_told_of_it(machine):
    pid = ask(machine, "bootlume.service", "MainPID")["MainPID"]
    said = machine.text("bootlumectl status")
    assert said.startswith(f"a splash answers at /tmp/.bootlume: process {pid}, since ")


def test_another_user_can_neither_end_nor_change_it(machine):
    as_nobody = "setpriv --reuid=65534 --regid=65534 --clear-groups "
    for command in (
        "bootlumectl quit --timeout 2",
        "bootlumectl text A B",
        "rm -f /tmp/.bootlume",
        "kill -INT $(systemctl show --value --property=MainPID bootlume.service)",
        "systemctl stop bootlume.service",
    ):
        status, said = machine.run(f"{as_nobody} sh -c '{command}'")
        assert status != 0, (command, said)
    machine.output("bootlumectl status")
    assert ask(machine, "bootlume.service", "ActiveState") == {"ActiveState": "active"}


@pytest.mark.parametrize(
    "name, script",
    [block for block in command_blocks() if FOR_MANAGER.search(block[1])],
    ids=lambda value: value if len(value) < 60 else "",
)
def test_a_documented_command_of_the_service_manager_runs(machine, name, script):
    machine.output(f"set -eu\n{script}")


def test_it_is_ended_when_its_target_is_reached(machine):
    machine.output("systemctl start ready.target")
    assert_ended_in_order(machine)
    # That the display is off is seen by its being free.
    machine.output("v4l2-ctl -d /dev/video1 --set-fmt-video-out width=480,height=800")
    assert ask(machine, "bootlume-quit@ready.service", "Result") == {"Result": "success"}


def test_stopping_the_service_ends_it_in_order(machine):
    start(machine)
    machine.output("systemctl stop bootlume.service")
    assert_ended_in_order(machine)


def test_one_that_has_only_just_been_started_is_ended_as_well(machine):
    machine.output("rm -f /tmp/.bootlume; systemctl start bootlume.service bootlume-quit.service")
    assert_ended_in_order(machine)


def test_ending_what_is_not_there_is_no_failure(machine):
    machine.output("rm -f /tmp/.bootlume; systemctl start bootlume-quit.service")
    assert ask(machine, "bootlume-quit.service", "ActiveState") == {"ActiveState": "inactive"}


def test_ending_what_has_gone_waits_for_nothing(machine):
    """Its socket's file is still there, which is no reason to wait for a splash."""
    start(machine)
    machine.output("bootlumectl quit")
    assert_ended_in_order(machine)
    machine.output(
        "test -S /tmp/.bootlume; journalctl --rotate --vacuum-time=1s; systemctl start bootlume-quit.service"
    )
    assert "exec-condition" in machine.text("journalctl --no-pager --unit bootlume-quit.service")


def begin_to_take_over(machine):
    """Starts the program that takes over the screen; the end of the splash waits for it."""
    machine.output("rm -f /run/shown; systemctl start --no-block slow.service")
    wait_for(machine, f"sh -c 'systemctl list-jobs | grep -q {AFTER_SLOW}'")
    assert ask(machine, "slow.service", "ActiveState") == {"ActiveState": "activating"}
    machine.output("bootlumectl status")


def test_the_screen_is_handed_over_once_the_program_is_on_it(machine):
    machine.output(f"systemctl enable {AFTER_SLOW}; : >/etc/default/bootlume")  # the manual's has armed it
    start(machine)
    begin_to_take_over(machine)
    machine.output("echo yes >/run/shown")
    assert_ended_in_order(machine)
    shown = int(ask(machine, "slow.service", "ActiveEnterTimestampMonotonic").popitem()[1])
    ended = int(ask(machine, AFTER_SLOW, "ExecMainStartTimestampMonotonic").popitem()[1])
    assert 0 < shown <= ended
    machine.output("systemctl stop slow.service")


def test_a_program_that_fails_to_take_the_screen_leaves_the_splash_on_it(machine):
    start(machine)
    begin_to_take_over(machine)
    machine.output("echo no >/run/shown")
    wait_for(machine, "systemctl --quiet is-failed slow.service")
    wait_for(machine, "sh -c '! systemctl list-jobs | grep -q slow'")
    machine.output("bootlumectl status")
    # It is the second try that takes the screen.
    begin_to_take_over(machine)
    machine.output("echo yes >/run/shown")
    assert_ended_in_order(machine)


def test_a_report_tells_of_all_and_of_no_text(machine):
    machine.output("mkdir -p /opt/userdata; bootlumectl trace DEBUG")
    start(machine)
    machine.output("bootlumectl text 'Very private' 'Quite secret'")
    wait_for(machine, "sh -c 'journalctl --unit bootlume.service | grep -q private'")
    said = machine.text("bootlumectl report")
    for part in (
        "ActiveState=active",
        "card vivid",
        "format 480 x 800 RGBP",
        "bootlume 5 0 0",
        '"state":"answers"',
        "command = (not shown)",
    ):
        assert part in said, said
    assert "private" not in said and "secret" not in said
    machine.output("bootlumectl quit; bootlumectl trace INFO")


def test_a_group_that_was_let_in_may_end_it(machine):
    """The drop-in is the manual's; the test of its commands has written it."""
    machine.output("systemctl daemon-reload")
    start(machine)
    assert machine.text("stat -c '%a %G' /tmp/.bootlume") == "660 video\n"
    machine.output(
        "setpriv --reuid=65534 --regid=65534 --groups=$(getent group video | cut -d: -f3) " "bootlumectl quit"
    )
    assert_ended_in_order(machine)


def test_the_settings_that_are_given_as_an_example_are_understood(machine, build_dir, installed):
    machine.output("sed 's/^#BOOTLUME_OPTIONS/BOOTLUME_OPTIONS/' /usr/share/bootlume-settings >/etc/default/bootlume")
    start(machine)
    shown = machine.output("PATH=/usr/lib/board:$PATH; screen 1 /run/picture && cat /run/picture")
    assert shown[-pictures.SIZE :] in reference(build_dir, installed).page(*TEXTS)
    machine.output("bootlumectl quit")


@pytest.fixture
def another_machine(installed):
    with installed.boot() as board:
        wait_for_answer(board)
        yield board


def arm(board, device_program, settings="", dropins=""):
    """Starts a splash that reboots in a moment, where the device's own reboot program is a script."""
    settings = f"BOOTLUME_OPTIONS=-c\\nSPLASH_TIMEOUT=3\\nSPLASH_TIMEOUT_HARD=600\\n{settings}"
    board.output(
        f"printf '#!/bin/sh\\necho called >/run/vrx\\n{device_program}\\n' >/sbin/vrx_reboot\n"
        f"chmod 755 /sbin/vrx_reboot\nprintf '{settings}' >/etc/default/bootlume\n"
        f"rm -rf /etc/systemd/system/bootlume.service.d\n{dropins}\nsystemctl daemon-reload\n"
        "systemctl restart bootlume.service"
    )


def assert_rebooted(board):
    assert board.wait_for_console(RESTART), board.console_text()[-3000:]
    assert board.wait_for_end() == 0


def test_an_armed_splash_brings_the_system_down_in_order_and_says_why(machine):
    """The device's own reboot program fails; the plain one asks the init system, from the sandbox.

    The drop-in that keeps the reason is the manual's: the kernel says it on the console.
    """
    arm(machine, "exit 3", dropins=next(script for _, script in command_blocks() if "reason.conf" in script))
    wait_for(machine, "test -e /run/vrx")
    assert_rebooted(machine)
    said = machine.console_text()
    reasons = ["startup timeout: rebooting via VRX", "failed to start VRX reboot, rebooting"]
    places = [said.find(reason) for reason in reasons] + [said.find(RESTART)]
    assert -1 not in places and places == sorted(places), said[-3000:]


def test_an_armed_splash_may_reboot_by_the_system_call(another_machine):
    arm(another_machine, "exec reboot --force --force", "REBOOT_COMMAND=/bin/false\\n")
    assert_rebooted(another_machine)


def test_a_machine_without_the_display_waits_for_nothing(installed):
    with installed.boot("no-overlay") as board:
        wait_for(board, "systemctl --quiet is-active multi-user.target")
        about = ask(board, "bootlume.service", "ActiveState", "ConditionResult", "ExecMainStartTimestampMonotonic")
        assert about == {"ActiveState": "inactive", "ConditionResult": "no", "ExecMainStartTimestampMonotonic": "0"}
        assert board.text("systemctl --failed --no-legend --plain") == ""


def test_a_display_that_never_shows_up_is_waited_for_and_no_longer(installed):
    with installed.boot("no-overlay") as board:
        wait_for(board, "systemctl --quiet is-active multi-user.target")
        board.output(
            "mkdir -p /etc/systemd/system/bootlume-display.service.d\n"
            "printf '[Unit]\\nConditionPathExists=\\n[Service]\\nTimeoutStartSec=2\\n'"
            " >/etc/systemd/system/bootlume-display.service.d/expected.conf\n"
            "systemctl daemon-reload; systemctl start bootlume.service || true"
        )
        about = ask(board, "bootlume-display.service", "ActiveState", "Result")
        assert about == {"ActiveState": "failed", "Result": "timeout"}
        assert ask(board, "bootlume.service", "ActiveState") == {"ActiveState": "inactive"}


def test_the_way_out_of_a_boot_loop_is_a_word_for_the_kernel(installed):
    """Without the splash there is no watchdog; what the journal gets shows on the console."""
    with installed.boot("systemd.mask=bootlume.service", "systemd.journald.forward_to_console=1") as board:
        wait_for(board, "systemctl --quiet is-active multi-user.target")
        assert ask(board, "bootlume.service", "LoadState", "ActiveState") == {
            "LoadState": "masked",
            "ActiveState": "inactive",
        }
        status, said = board.run("bootlumectl status")
        assert status == 3, said
        board.output("logger --tag bootlume-test 'seen on the console'")
        assert board.wait_for_console("seen on the console")
