"""A whole Debian system with the packages installed, as a machine that can be started in several ways.

The root is a clean one with the packages in it; the kernel is the boards'. An amd64 system lies on a disk
and comes up through an initramfs of Debian's own tools; a 32-bit ARM one is its kernel's memory disk.
"""

import dataclasses
import os
import pathlib
import shutil
import subprocess

from . import emulated, machines

SOURCE = pathlib.Path(__file__).resolve().parent.parent
FURNITURE = SOURCE / "packaging/tests/boot"
OVERLAY_DRIVER = "vivid"
DISK_DRIVERS = ("virtio_pci", "virtio_blk", "ext4", "crc32c_generic")
OPTIONS = "options vivid n_devs=1 node_types=0x0101 num_inputs=1 input_types=0x3 num_outputs=1 " "output_types=0x1\n"
DISK_MB, MEMORY_MB = 2000, 1536
TRACED = {
    "queued": "videobuf2_v4l2:vb2_ioctl_qbuf",
    "shown": "videobuf2_common:vb2_buffer_done",
    "drawn": "drm:drm_mode_dirtyfb_ioctl",
    "flipped": "drm:drm_mode_page_flip_ioctl",
    "switched": "drm:drm_mode_setcrtc",
    "changed": "drm:drm_mode_atomic_ioctl",
}
ORDINARY = ("?priority(important)",)
MASKED = (
    "serial-getty@ttyS0.service",
    "getty@tty1.service",
    "apt-daily.timer",
    "fstrim.timer",
    "apt-daily-upgrade.timer",
    "dpkg-db-backup.timer",
    "e2scrub_all.timer",
)

SETTLE = f"""
systemctl enable agent.service
systemctl mask {' '.join(MASKED)}
printf '%032x\\n' 1 >/etc/machine-id
mkdir -p /opt/userdata
rm -rf /var/lib/apt/lists /var/cache/apt
"""
# What nobody reads there would fill the memory.
TRIM = """
rm -rf /usr/share/{locale,man,info,i18n,perl,perl5} /usr/lib/python3* /usr/lib/*/perl /usr/lib/udev/hwdb*
"""
# $1: the root below, $2: the folder of changes, $3: the disk. In a mount namespace of its own.
DISK = f"""
mount -t overlay overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$2/merged"
rm -rf "$2"/merged/packages "$2"/merged/initrd*
truncate -s {DISK_MB}M "$3"
mkfs.ext4 -q -F -O ^has_journal -d "$2/merged" "$3"
"""
MEMORY_DISK = """
mount -t overlay overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$2/merged"
exec /usr/bin/python3 -c '
import sys
from pathlib import Path
from board.cpio import Archive
archive = Archive()
archive.tree(sys.argv[1], without=("dev", "proc", "sys", "run", "packages"))
for name in ("dev", "proc", "sys", "run"):
    archive.folder(name)
archive.character_device("dev/console", 5, 1)
archive.character_device("dev/null", 1, 3)
Path(sys.argv[2]).write_bytes(archive.finished())
' "$2/merged" "$3"
"""


def tree(kind):
    """The unpacked kernel of the boards; made where it is missing."""
    done = subprocess.run(
        ["bash", "-c", f". scripts/lib/roots.sh && need_root {kind}"],
        cwd=SOURCE,
        capture_output=True,
        text=True,
        check=True,
    )
    return pathlib.Path(done.stdout.strip())


class System:
    """One root and what is made of it.

    `extra`: Debian packages that it has besides; `drivers`: what its
    initramfs loads besides; `ordinary`: that it has all that an installation of Debian has."""

    def __init__(self, architecture, folder, extra=(), drivers=(), ordinary=False):
        self.machine = machines.MACHINES["amd64" if architecture == "amd64" else "virt"]
        self.folder = pathlib.Path(folder)
        self.changes = self.folder / "upper"
        self.changes.mkdir(parents=True)
        self._ordinary = ordinary
        extra = (*ORDINARY, *extra) if ordinary else extra
        self._drivers = (*DISK_DRIVERS, *drivers) if architecture == "amd64" else ()
        self._tree = tree(self.machine.tree)
        self._architecture = architecture
        done = subprocess.run(
            [SOURCE / "packaging/tests/clean_root.sh", architecture, *extra], capture_output=True, text=True, check=True
        )
        self.root = pathlib.Path(done.stdout.strip())
        self._furnish()

    def _furnish(self):
        self._modules((OVERLAY_DRIVER, *self._drivers))
        shutil.copytree(SOURCE / "board/target", self.changes / "usr/lib/board")
        self.put("usr/lib/board/usleep", '#!/bin/sh\nexec sleep "$1e-6"\n', 0o755)  # the other boards have BusyBox's
        self.put("etc/modprobe.d/overlay.conf", OPTIONS)
        for source, folder in (("agent.service", "etc/systemd/system"), ("65-overlay.rules", "etc/udev/rules.d")):
            self.put(f"{folder}/{source}", (FURNITURE / source).read_text())
        self.put("etc/initramfs-tools/initramfs.conf", "MODULES=list\nBUSYBOX=auto\nCOMPRESS=gzip\n")
        self.put("etc/initramfs-tools/modules", "\n".join(self._drivers) + "\n")
        self.put("etc/fstab", "/dev/vda / ext4 errors=remount-ro 0 1\n" if self.on_disk else "")

    @property
    def on_disk(self):
        return self._architecture == "amd64"

    def put(self, name, text, mode=0o644):
        """Writes a file of the root."""
        path = self.changes / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(mode)

    def _modules(self, names):
        """The kernel's modules: all of them, or these and what they need."""
        version = machines.version(self._tree)
        folder = self.changes / "usr/lib/modules" / version
        if self._ordinary:
            shutil.copytree(self._tree / "lib/modules" / version, folder)
        else:
            self._copy_modules(names, folder)
        self.put(f"boot/config-{version}", (self._tree / f"boot/config-{version}").read_text())

    def _copy_modules(self, names, folder):
        version = folder.name
        shown = subprocess.run(
            ["/sbin/modprobe", "-d", self._tree, "-S", version, "--show-depends", "-a", *names],
            capture_output=True,
            text=True,
            check=True,
        ).stdout
        source = self._tree / "lib/modules" / version
        files = [pathlib.Path(line.split()[1]) for line in shown.splitlines() if line.startswith("insmod")]
        files += [source / f"modules.{name}" for name in ("order", "builtin", "builtin.modinfo")]
        for file in files:
            target = folder / file.relative_to(source)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, target)
        subprocess.run(["/sbin/depmod", "-b", self.changes / "usr", version], check=True)

    def run(self, script):
        """Runs a script in the root, as it will be when it is booted."""
        subprocess.run(
            [SOURCE / "packaging/tests/in_root.sh", self.root, self.folder, "bash", "-euc", script],
            check=True,
            timeout=900,
        )

    def install(self, packages):
        (self.changes / "packages").mkdir(exist_ok=True)
        names = [shutil.copy(package, self.changes / "packages") for package in packages]
        self.run("dpkg -i " + " ".join(f"/packages/{pathlib.Path(name).name}" for name in names) + " >/dev/null")

    def initramfs(self, name="initrd"):
        """What Debian's tools make of the root now; its path."""
        self.run(f"mkinitramfs -o /{name} {machines.version(self._tree)}")
        return shutil.move(self.changes / name, self.folder / name)

    def finish(self):
        """Makes the disk of what the root holds now."""
        self.run(SETTLE + ("" if self.on_disk else TRIM))
        self.disk = self.folder / "disk"
        subprocess.run(
            [
                "unshare",
                "--mount",
                "--propagation",
                "private",
                "sh",
                "-euc",
                DISK if self.on_disk else MEMORY_DISK,
                "-",
                self.root,
                self.folder,
                self.disk,
            ],
            check=True,
            cwd=SOURCE,
            env={**os.environ, "PYTHONPATH": str(SOURCE)},
        )

    def boot(self, *words, initramfs=None, traced=True):
        """A board, to be used with "with"; the words are on the kernel's command line."""
        emulator = [*self.machine.emulator, *machines.INSTRUCTION_CLOCK]
        if self.on_disk:
            emulator += ["-drive", f"file={self.disk},if=virtio,format=raw,snapshot=on", "-device", "VGA"]
            words = ("root=/dev/vda", "ro", *words)
        if traced:
            events = ";".join(f"p:{name},{place}" for name, place in TRACED.items())
            # An event that the kernel itself names makes it give the trace its whole room at once.
            words = (
                f"kprobe_event={events}",
                "trace_event=sched:sched_process_exec",
                "trace_clock=mono",
                "trace_buf_size=4M",
                *words,
            )
        machine = dataclasses.replace(
            self.machine, emulator=tuple(emulator), memory=MEMORY_MB, words=("panic=-1", *words)
        )
        return emulated.Board(machine, self._tree, initramfs or self.disk, self.folder)


SETTINGS = """BOOTLUME_OPTIONS='-c "Brem K5 Start" "The system is starting.\\\\nPlease wait."'
BOOTLUME_DRIVER=vivid
BOOTLUME_NODE=/dev/video1
"""


class SplashSystem(System):
    """A system with the splash, which can be started as a service or before the init system. WAYS: kernel's
    words and initramfs of each way."""

    WAYS = {
        "service": ((), "plain"),
        "bootlume-init": (("init=/usr/sbin/bootlume-init",), "plain"),
        "initramfs": ((), "early"),
        "fault-init": (("init=/usr/lib/board/fault-init",), "plain"),
    }

    def __init__(self, architecture, folder, settings=SETTINGS, furnish=lambda system: None, **options):
        super().__init__(architecture, folder, **options)
        self.put("etc/modules-load.d/overlay.conf", f"{OVERLAY_DRIVER}\n")
        self.install(self._packages("bootlume-bin", "bootlume"))
        self.put("etc/default/bootlume", settings)
        furnish(self)
        if self.on_disk:
            self.initramfs("plain")
            self.install(self._packages("bootlume-initramfs"))
            self.initramfs("early")

    def _packages(self, *names):
        folder = SOURCE / "build/packages"
        return [
            path
            for name in names
            for path in folder.glob(f"{name}_*_*.deb")
            if path.stem.endswith(("_all", f"_{self._architecture}"))
        ]

    def start(self, way, *words, **options):
        """A board on which the splash is started in that way."""
        own, initramfs = self.WAYS[way]
        if self.on_disk:
            return self.boot(*own, *words, initramfs=self.folder / initramfs, **options)
        return self.boot(*(word.replace("init=", "rdinit=") for word in own or ("init=/sbin/init",)), *words, **options)
