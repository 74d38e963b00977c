"""bootlumectl report: what others need to know, and nothing that is nobody else's business."""

import os
import subprocess

import pytest

from ctl_desk import SECONDS, stopped, wait_for_answer
from desk import BUILD, DEVICE, SOCKET, TRACE_CONFIG

JOURNAL = (
    r"""
Nov 21 23:05:12 systemd[1]: Started bootlume.service - Boot splash screen.
Nov 21 23:05:12 BL: [20261121-230512:001] (77) (        bootlume)    INFO:	| kept| a/b.cpp:1
Nov 21 23:05:13 BL: [20261121-230513:001] (77) (        bootlume)   DEBUG:	| Got Message from socket, command = Secret 1
Nov 21 23:05:13 BL: Secret 2| bootlume/src/u.cpp:9
Nov 21 23:05:13 BL: DEBUG|bootlume/src/u.cpp:9:bootlume|  Got Message from socket, command = Secret 3
Nov 21 23:05:13 BL: Secret 4
Nov 21 23:05:14 BL: [20261121-230514:001] (77) (       generator)   DEBUG:	| Secret 5| a/p.cpp:2
Nov 21 23:05:14 BL: \x1b[1;31m[20261121-230514:001] (77) (   bl-dispatcher)   ERROR:	| kept, too| a/b.cpp:2
Nov 21 23:05:15 BL: bind error: Address already in use
Nov 21 23:05:15 other[78]: Secret 6
""".lstrip()
    .replace(r"\x1b", "\x1b")
    .replace("BL:", "bootlume[77]:")
)


@pytest.fixture
def report(desk, tmp_path):
    """Runs it with programs of its own in the place of the system's; the sections by their titles."""
    programs = tmp_path / "programs"
    programs.mkdir()

    def run(**scripts):
        for name, script in scripts.items():
            (programs / name).write_text("#!/bin/sh\n" + script + "\n")
            (programs / name).chmod(0o755)
        done = subprocess.run(
            [BUILD / "bin/bootlumectl", "--root", desk.root, "report"],
            env={**os.environ, "PATH": f"{programs}:{os.environ['PATH']}"},
            capture_output=True,
            text=True,
            timeout=SECONDS,
            check=False,
        )
        assert (done.returncode, done.stderr) == (0, "")
        parts = [part.partition("\n") for part in done.stdout.split("== ")[1:]]
        return {title.partition(",")[0]: text for title, _, text in parts}

    return run


def test_it_tells_what_it_found(desk, report):
    desk.trace_config("other 1 0 0", "bootlume 5 0 0")
    splash = wait_for_answer(desk.start())
    said = report(systemctl="echo ActiveState=active", journalctl=f"cat <<'END'\n{JOURNAL}END")
    assert list(said) == ["Versions", "Service", "Display", "Fonts", "Trace configuration", "Socket", "Log"]
    version = subprocess.run([BUILD / "bin/bootlumectl", "--version"], capture_output=True, text=True, check=True)
    assert version.stdout in said["Versions"] and os.uname().release in said["Versions"]
    assert said["Service"].strip() == "ActiveState=active"
    assert DEVICE in said["Display"] and "not asked: No such file or directory" in said["Display"]
    assert len([line for line in said["Fonts"].splitlines() if ": " in line]) == 2
    assert str(desk.path(TRACE_CONFIG)) in said["Trace configuration"]
    assert "bootlume 5 0 0" in said["Trace configuration"] and "other" not in said["Trace configuration"]
    assert str(desk.path(SOCKET)) in said["Socket"]
    assert '"state":"answers"' in said["Socket"] and f'"process":{splash.pid}' in said["Socket"]


def test_it_leaves_out_texts_and_what_reboot_programs_said(report):
    said = report(journalctl=f"cat <<'END'\n{JOURNAL}END")
    assert "Secret" not in said["Log"]
    for kept in ("Started bootlume.service", "| kept|", "| kept, too|", "bind error", "command = (not shown)"):
        assert kept in said["Log"]
    assert len(said["Log"].splitlines()) == 6


def test_a_program_of_the_system_that_hangs_is_ended(report):
    said = report(systemctl="echo begun; exec sleep 1000")
    assert said["Service"].strip() == "begun"


def test_a_stopped_splash_holds_it_up_as_little(desk, report):
    with stopped(wait_for_answer(desk.start())):
        assert '"state":"stopped"' in report(systemctl=":")["Socket"]


def test_a_device_without_a_service_manager_has_a_report_as_well(report):
    said = report(systemctl="echo 'sh: systemctl: not found'; exit 127", journalctl="exit 127")
    assert "not found" in said["Service"]
    assert said["Log"] == ""


def test_it_asks_the_display_for_its_format(desk):
    """In the place of the driver, the virtual device."""
    environment = desk.environment(log=desk.root / "calls")
    said = subprocess.run(
        [BUILD / "bin/bootlumectl", "report"],
        env=environment,
        capture_output=True,
        text=True,
        timeout=SECONDS,
        check=True,
    ).stdout
    assert "format 480 x 800 RGBP, 960 bytes a row" in said
