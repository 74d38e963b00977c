"""The program on a desk: a folder of its own, the virtual device, and eyes on both.

    with Desk(bootlume="build/release/bin/bootlume",
              library="build/release/lib/libvirtual-device.so") as desk:
        desk.trace_config("bootlume 6 ffffffff 0")
        splash = desk.start("Title", "first line\\nsecond line", faults="VIDIOC_QBUF@3=EIO")
        frame = splash.screen.wait_for_frame(3)          # Frame: number, time, pixels
        splash.send("QUIT")
        assert splash.wait() == 0
        assert [r["call"] for r in splash.records(kind="device")][-1] == "close"

Every wait has a deadline and raises `Late`, which says what was waited for, when it passes. Only
the standard library is needed, but for desk.pictures. The layout of the screen file and the form of
the log are described in tools/virtual-device/README.md.
"""

from .desk import COUNTED, SHELL, Desk, die_with_parent, sanitizer_runtimes
from .places import BUILD, DEVICE, LANGUAGE, SOCKET, SOURCE, TRACE_CONFIG, python_environment
from .screen import HEIGHT, WIDTH, Frame, Screen
from .splash import (
    LOOP,
    Splash,
    end_by_signal,
    handles_signals,
    hears_signals,
    is_dispatching,
    listens,
    send_datagram,
    short_name,
    wait_until_running,
    writes_to_standard_output,
)
from .trace import TraceLine, parse_trace
from .waiting import DEADLINE, Late, fill_pipe, read_line, wait_until

__all__ = [
    "BUILD",
    "COUNTED",
    "DEADLINE",
    "DEVICE",
    "HEIGHT",
    "LANGUAGE",
    "LOOP",
    "SHELL",
    "SOCKET",
    "SOURCE",
    "TRACE_CONFIG",
    "WIDTH",
    "Desk",
    "Frame",
    "Late",
    "Screen",
    "Splash",
    "TraceLine",
    "die_with_parent",
    "end_by_signal",
    "fill_pipe",
    "handles_signals",
    "hears_signals",
    "is_dispatching",
    "listens",
    "parse_trace",
    "python_environment",
    "read_line",
    "sanitizer_runtimes",
    "send_datagram",
    "short_name",
    "wait_until",
    "wait_until_running",
    "writes_to_standard_output",
]
