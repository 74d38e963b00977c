"""The desk: a root folder with the virtual device, on which the program is started."""

import ctypes
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path

from .places import BUILD, LANGUAGE, SOCKET, TRACE_CONFIG
from .screen import Screen
from .splash import Splash

# For counts of instructions. Callgrind takes each byte that `rep stosb` fills for an instruction, so
# the C library is to fill memory in its other ways.
COUNTED = {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-ERMS"}
# The first line of a script that the program starts: without the preload, the shell would be on the
# device, too, and be looked at for leaks.
SHELL = "#!/usr/bin/env -S -u LD_PRELOAD /bin/sh\n"
SETTINGS = ("screen", "log", "refresh", "buffers", "format", "faults")


def sanitizer_runtimes(program):
    """Paths of the sanitizer run-time libraries that `program` needs; they are preloaded first."""
    listed = subprocess.run(["ldd", str(program)], capture_output=True, text=True, check=False)
    return re.findall(r"=> (\S*/lib[at]san\.so\S*)", listed.stdout)


def preloaded(*libraries):
    """The value of LD_PRELOAD for these libraries, in their order."""
    for library in map(str, libraries):
        if " " in library or ":" in library:
            raise ValueError(f"{library}: the dynamic loader preloads nothing whose path holds a blank or a colon")
    return ":".join(map(str, libraries))


def die_with_parent():
    """Runs in the child: a test run that is killed leaves no splash behind."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


class Desk:
    """One root folder with the program's fixed paths below it.

    bootlume, library: paths; by default those of the preset that BOOTLUME_PRESET names ("release").
    root: an existing folder that is kept; by default a new one that close() removes.
    behind: libraries that are preloaded behind the virtual device.
    run_prefix: words before the program, for example ["qemu-arm-static", "-L", sysroot]. They run in
    the program's environment, which a static program can bear; prefix_env="-E" gives what is meant for
    the program alone by that option (which an emulator cuts at commas).
    """

    def __init__(self, bootlume=None, library=None, root=None, behind=(), run_prefix=(), prefix_env=None):
        self.bootlume = Path(bootlume or BUILD / "bin/bootlume").resolve()
        self.library = Path(library or BUILD / "lib/libvirtual-device.so").resolve()
        self._own_root = root is None
        self.root = Path(root or tempfile.mkdtemp(prefix="bootlume-desk-")).resolve()
        self.behind = list(behind)
        self.run_prefix = list(run_prefix)
        self.prefix_env = prefix_env
        self.screen = Screen(self.root / "screen")
        self._started = []
        for path in (SOCKET, TRACE_CONFIG, LANGUAGE, "/sbin/reboot"):
            self.path(path).parent.mkdir(parents=True, exist_ok=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends what still runs and removes the folder."""
        for splash in self._started:
            splash.close()
        self.screen.close()
        if self._own_root:
            shutil.rmtree(self.root, ignore_errors=True)

    def path(self, fixed):
        """Where one of the program's absolute paths lies on this desk."""
        return self.root / str(fixed).lstrip("/")

    def write(self, fixed, content, mode=0o644):
        """Makes the file at an absolute path of the program."""
        path = self.path(fixed)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        path.chmod(mode)
        return path

    def go_on(self):
        """Lets the calls go on that a fault "hold" keeps waiting."""
        self.path("/go").touch()

    def trace_config(self, *lines):
        """Writes the trace configuration, in place, so that a running program sees it change."""
        return self.write(TRACE_CONFIG, "".join(line + "\n" for line in lines))

    def language(self, code):
        """Sets the language of the device, for example "zh"."""
        return self.write(LANGUAGE, json.dumps({"selectedLanguage": code}, separators=(",", ":")))

    def reboot_script(self, program, body):
        """Puts a shell script in the place of "/sbin/vrx_reboot" or "/sbin/reboot"."""
        return self.write(program, "#!/bin/sh\n" + body + "\n", 0o755)

    def environment(self, env=None, **settings):
        """The program's environment: that of the caller, the virtual device, and `env` on top.

        A value of None in `env` removes a variable. `settings` are the virtual device's variables
        in lower case without their prefix: refresh=0, faults="open@1=ENOENT" and so on.
        """
        unknown = set(settings) - set(SETTINGS)
        assert not unknown, f"the virtual device has no settings {sorted(unknown)}"
        made = {k: v for k, v in os.environ.items() if not k.startswith("VIRTUAL_DEVICE_")}
        made["LD_PRELOAD"] = preloaded(*sanitizer_runtimes(self.bootlume), self.library, *self.behind)
        made["VIRTUAL_DEVICE_ROOT"] = str(self.root)
        for name, value in settings.items():
            if value is not None:
                made["VIRTUAL_DEVICE_" + name.upper()] = str(value)
        for name, value in (env or {}).items():
            if value is None:
                made.pop(name, None)
            else:
                made[name] = str(value)
        return made

    def _command(self, arguments, environment):
        """(words, environment of the first of them)."""
        words = [str(self.bootlume), *map(str, arguments)]
        if not self.run_prefix:
            return words, environment
        if not self.prefix_env:
            return self.run_prefix + words, environment
        outside = {k: v for k, v in environment.items() if k != "LD_PRELOAD" and not k.startswith("VIRTUAL_DEVICE_")}
        passed = [word for k, v in environment.items() if k not in outside for word in (self.prefix_env, f"{k}={v}")]
        return self.run_prefix + passed + words, outside

    def start(self, *arguments, env=None, stdout=None, stderr=None, stdin=subprocess.DEVNULL, prepare=None, **settings):
        """Starts the program with its arguments; see environment() for env and settings.

        Standard output and error go to files below the root unless other targets are given (as
        subprocess takes them), for example a terminal; then Splash.stdout stays empty. prepare() is
        called in the new process just before the program: for limits, descriptors, signals.
        """
        number = len(self._started)
        files = [self.root / f"{name}.{number}" for name in ("stdout", "stderr", "log")]
        settings.setdefault("log", files[2])
        words, environment = self._command(arguments, self.environment(env, **settings))

        def begin():
            if prepare is not None:
                prepare()
            die_with_parent()  # last: a change of the user would undo it

        with open(files[0], "ab") as out, open(files[1], "ab") as err:
            process = subprocess.Popen(
                words,
                env=environment,
                stdin=stdin,
                preexec_fn=begin,
                stdout=out if stdout is None else stdout,
                stderr=err if stderr is None else stderr,
            )
        files[2] = Path(settings["log"])
        splash = Splash(self, process, files)
        self._started.append(splash)
        return splash

    def run(self, *arguments, deadline=None, **options):
        """Starts the program and waits for its end; the ended Splash."""
        splash = self.start(*arguments, **options)
        splash.wait(deadline)
        return splash
