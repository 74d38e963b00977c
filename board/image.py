"""The board's image: a folder with everything that runs there, and the initramfs made of it."""
import pathlib
import re
import shutil
import subprocess

from desk import DEVICE

from . import machines
from .cpio import Archive

HERE = pathlib.Path(__file__).parent
FONTS = ("usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", "usr/share/fonts/truetype/droid/DroidSansFallbackFull.ttf")
MODULES = ("vivid",)
# Programs that only tests start; an image without them is an image all the same.
TEST_PROGRAMS = ("surface-contract-test", "launch_test", "process_test", "after_fork_test", "launch_report")

# What stands at /sbin/vrx_reboot in each image. Every script says on the console that it ran.
_SAY = "#!/bin/sh\necho '<1>vrx_reboot: called' >/dev/kmsg\n"
VRX_REBOOT = {
    "vrx": _SAY + "exec reboot\n",
    "failing": _SAY + "exit 3\n",
    "hanging": _SAY + "exec sleep 86400\n",
    "plain": None,
}


class MissingProgram(Exception):
    """The build has not made something that the image needs."""


def needed_libraries(program):
    """The names that the dynamic linker would look for."""
    text = subprocess.run(["readelf", "-d", "-l", program], check=True, capture_output=True, text=True).stdout
    loader = re.findall(r"program interpreter: (.*)\]", text)
    return re.findall(r"\(NEEDED\).*\[(.*)\]", text), loader


class Image:
    """The folder of one machine. build is the build folder of the machine's preset."""

    def __init__(self, machine, build, trees, work):
        self.machine = machine
        self.root = work / "root"
        self._build = build
        self._kernel_tree = trees[machine.tree]
        self._tree = trees[machine.root]
        self._work = work
        self._copied = set()

    def make(self):
        """Lays the folder out and returns it."""
        shutil.rmtree(self.root, ignore_errors=True)
        for folder in (
            "dev",
            "proc",
            "sys",
            "tmp",
            "run",
            "root",
            "opt/userdata",
            "var/cache/fontconfig",
            "opt/userdata/devicestack/appData/confd",
            "bin",
            "sbin",
            "usr/lib/board",
            "etc",
        ):
            (self.root / folder).mkdir(parents=True)
        self._busybox()
        self._scripts()
        self._fonts()
        self._modules()
        self._program(self._tree / "usr/bin/v4l2-ctl", "usr/bin/v4l2-ctl")
        for name in ("bootlume", "board-tool"):
            self._built("bin/" + name, "usr/bin/" + name)
        for name in TEST_PROGRAMS:
            self._built("tests/" + name, "usr/lib/board/" + name)
            self._without_symbols("usr/lib/board/" + name)
        return self.root

    def initramfs(self, variant):
        """The archive with that variant's reboot program, written to a file of its own."""
        archive = Archive()
        archive.tree(self.root)
        archive.character_device("dev/console", 5, 1)
        archive.link("init", "sbin/init")
        if VRX_REBOOT[variant]:
            archive.file("sbin/vrx_reboot", VRX_REBOOT[variant].encode(), 0o755)
        path = self._work / f"initramfs-{variant}"
        path.write_bytes(archive.finished())
        return path

    def _busybox(self):
        shutil.copy2(self._tree / "bin/busybox", self.root / "bin/busybox")
        emulator = ["qemu-arm-static"] if self.machine.preset == "armhf" else []
        applets = subprocess.run(
            emulator + [self.root / "bin/busybox", "--list"], check=True, capture_output=True, text=True
        ).stdout.split()
        for applet in applets:
            if applet != "busybox":
                (self.root / "bin" / applet).symlink_to("/bin/busybox")
        for name in ("init", "reboot", "poweroff"):
            (self.root / "sbin" / name).symlink_to("/bin/busybox")

    def _scripts(self):
        for path in (HERE / "target").iterdir():
            shutil.copy2(path, self.root / "usr/lib/board" / path.name)
        shutil.move(self.root / "usr/lib/board/inittab", self.root / "etc/inittab")
        etc = self.root / "etc"
        (etc / "overlay-device").write_text(DEVICE + "\n")
        (etc / "passwd").write_text("root::0:0:root:/root:/bin/sh\n")
        (etc / "group").write_text("root:x:0:\n")
        (etc / "motd").write_text(
            "The splash is running. 'screenshot' writes its picture to the host;" " 'poweroff -f' ends the board.\n"
        )

    def _fonts(self):
        for font in FONTS:
            target = self.root / font
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(self._tree / font, target)
        shutil.copytree(
            self._tree / "etc/fonts",
            self.root / "etc/fonts",
            symlinks=False,
            ignore=shutil.ignore_patterns("conf.avail"),
        )

    def _modules(self):
        version = machines.version(self._kernel_tree)
        source = self._kernel_tree / "lib/modules" / version
        target = self.root / "lib/modules" / version
        depends = dict(line.split(":", 1) for line in (source / "modules.dep").read_text().splitlines())
        target.mkdir(parents=True)
        lines = []
        for path, others in depends.items():
            if pathlib.Path(path).stem in MODULES:
                lines.append(f"{path}:{others}")
                for module in [path, *others.split()]:
                    (target / module).parent.mkdir(parents=True, exist_ok=True)
                    shutil.copy2(source / module, target / module)
                    lines.append(f"{module}:{depends[module]}")
        (target / "modules.dep").write_text("".join(line + "\n" for line in dict.fromkeys(lines)))

    def _built(self, name, target):
        if not (self._build / name).exists():
            raise MissingProgram(f"the build has no {name} in {self._build}")
        self._program(self._build / name, target)

    def _without_symbols(self, target):
        prefix = "arm-linux-gnueabihf-" if self.machine.preset == "armhf" else ""
        subprocess.run([prefix + "strip", self.root / target], check=True)

    def _program(self, source, target):
        """A program with every library that it needs."""
        (self.root / target).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source, self.root / target)
        names, loader = needed_libraries(source)
        for path in loader:
            (self.root / path[1:]).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(self._library(pathlib.Path(path).name), self.root / path[1:])
        for name in names:
            self._copy_library(name)

    def _copy_library(self, name):
        if name in self._copied:
            return
        self._copied.add(name)
        source = self._library(name)
        (self.root / "usr/lib").mkdir(parents=True, exist_ok=True)
        if not name.startswith("ld-linux"):
            shutil.copy2(source, self.root / "usr/lib" / name)
        for other in needed_libraries(source)[0]:
            self._copy_library(other)

    def _library(self, name):
        for folder in ("lib/*-linux-gnu*", "usr/lib/*-linux-gnu*", "lib64", "lib"):
            for path in sorted(self._tree.glob(folder + "/" + name)):
                return path
        raise MissingProgram(f"the library {name} is not in {self._tree}")
