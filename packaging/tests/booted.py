"""A machine with the init system, booted for real in an emulator, with the packages installed.

The root is the clean one of the other tests with the packages in it, whole in the kernel's first
memory disk; the kernel, the emulator and the line to it are those of the board's tests.
"""

import dataclasses
import shutil
import subprocess
from pathlib import Path

from board import emulated, machines
from desk import SOURCE, python_environment

HERE = Path(__file__).resolve().parent

MODULE = "vivid"
MEMORY_MB = 1536
# The machine has no image unit, and is slow.
PATIENCE = "[Unit]\nConditionPathExists=\n[Service]\nTimeoutStartSec=300\n"
UNITS = ("agent.service", "overlay-driver.service", "ready.target", "slow.service")
# What takes time in an emulator and has nothing to do with a splash.
MASKED = (
    "serial-getty@ttyS0.service",
    "getty@tty1.service",
    "apt-daily.timer",
    "fstrim.timer",
    "apt-daily-upgrade.timer",
    "dpkg-db-backup.timer",
    "e2scrub_all.timer",
)


def kernel_tree():
    """The unpacked kernel of the board's tests; made where it is missing."""
    done = subprocess.run(
        ["bash", "-c", ". scripts/lib/roots.sh && need_root amd64"],
        cwd=SOURCE,
        capture_output=True,
        text=True,
        check=True,
    )
    return Path(done.stdout.strip())


def copy_modules(tree, root):
    """The video driver and the modules that it needs."""
    version = machines.version(tree)
    shown = subprocess.run(
        ["/sbin/modprobe", "-d", tree, "-S", version, "--show-depends", MODULE],
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    for line in shown.splitlines():
        module = Path(line.split()[1])
        target = root / "usr" / module.relative_to(tree)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(module, target)
    for name in ("modules.order", "modules.builtin", "modules.builtin.modinfo"):
        shutil.copy(tree / "lib/modules" / version / name, root / "usr/lib/modules" / version)
    subprocess.run(["/sbin/depmod", "-b", root / "usr", version], check=True)


def furnish(tree, root):
    """Lays out in the changes of a root what a boot needs besides the packages."""
    copy_modules(tree, root)
    board = root / "usr/lib/board"
    shutil.copytree(SOURCE / "board/target", board)
    for name in ("busybox", "usleep"):
        shutil.copy(tree / "bin/busybox", board / name)
    for name in UNITS:
        target = root / "etc/systemd/system" / name
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(HERE / "boot" / name, target)
    patience = root / "etc/systemd/system/bootlume-display.service.d/patience.conf"
    patience.parent.mkdir(parents=True, exist_ok=True)
    patience.write_text(PATIENCE)
    late = root / "etc/systemd/system/systemd-tmpfiles-setup.service.d"
    late.mkdir(parents=True)
    shutil.copy(HERE / "boot/tmp-late.conf", late)
    rules = root / "etc/udev/rules.d"
    rules.mkdir(parents=True, exist_ok=True)
    shutil.copy(HERE / "boot/65-overlay.rules", rules)


PREPARE = f"""
systemctl enable agent.service overlay-driver.service bootlume-quit@ready.service
systemctl mask {' '.join(MASKED)}
printf '%032x\\n' 1 >/etc/machine-id
cp /etc/default/bootlume /usr/share/bootlume-settings
rm -rf /usr/share/{{locale,man,doc,info,i18n,perl,perl5}} /usr/lib/*/perl /usr/lib/python3* /usr/lib/udev/hwdb* \
  /var/lib/apt/lists /var/cache/apt
echo Storage=volatile >>/etc/systemd/journald.conf
"""

# Run in a mount namespace of its own: lower, changes and the place where both are seen.
ARCHIVE = """
mount -t overlay overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$2/merged"
exec /usr/bin/python3 -c '
import sys
from pathlib import Path
from board.cpio import Archive
archive = Archive()
archive.tree(sys.argv[1], without=("dev", "proc", "sys", "run"))
for name in ("dev", "proc", "sys", "run"):
    archive.folder(name)
archive.character_device("dev/console", 5, 1)
archive.character_device("dev/null", 1, 3)
archive.file("init", Path("packaging/tests/boot/init").read_bytes(), 0o755)
Path(sys.argv[2]).write_bytes(archive.finished())
' "$2/merged" "$3"
"""


class Installed:
    """A root with the packages installed, as a memory disk that boots."""

    def __init__(self, root, folder):
        """`root` has run the packages' installation; `folder` takes the disk."""
        self.root = root.path
        self._tree = kernel_tree()
        furnish(self._tree, root.changes)
        done = root.run(PREPARE)
        assert done.returncode == 0, done.stderr
        self.folder = folder
        self.disk = folder / "initramfs"
        subprocess.run(
            [
                "unshare",
                "--mount",
                "--propagation",
                "private",
                "sh",
                "-euc",
                ARCHIVE,
                "-",
                root.path,
                root.folder,
                self.disk,
            ],
            check=True,
            cwd=SOURCE,
            env=python_environment(),
        )

    def boot(self, *words):
        """A machine, to be used with "with"; the words are on the kernel's command line."""
        machine = dataclasses.replace(machines.MACHINES["amd64"], memory=MEMORY_MB, words=words)
        return emulated.Board(machine, self._tree, self.disk, self.folder)
