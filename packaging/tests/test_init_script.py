"""The init script in a clean root, on the virtual device: with Debian's shell and tools, and with BusyBox's."""

import os
import shutil

import pytest

import booted
from test_installation import INSTALL, CleanRoot

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="only root may enter a root")

# A /dev of its own with what stands for the display, and the settings of a splash on the virtual device.
PREPARE = """
cd /; mount -t tmpfs dev /dev; mknod -m 666 /dev/null c 1 3; mknod -m 666 /dev/urandom c 1 9
mkdir -p /dev/v4l/by-path /desk /tmp/bb
: >/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0
cat >>/etc/default/bootlume <<'END'
BOOTLUME_OPTIONS='"The title" "One line.\\\\nAnother."'
VIRTUAL_DEVICE_ROOT=/desk
LD_PRELOAD=$(echo /usr/lib/*/bootlume/libvirtual-device.so)
END
said() { status=0; "$@" >/tmp/said 2>&1 || status=$?; echo "$status $(cat /tmp/said)"; }
"""
# BusyBox's programs first, and its shell for the script.
BUSYBOX = "/busybox --install -s /tmp/bb; export PATH=/tmp/bb:$PATH; splash='/busybox sh /init-script'\n"
DEBIAN = "splash='sh /init-script'\n"
WAIT = "for try in $(seq 600); do [ ! -S /desk/tmp/.bootlume ] || break; sleep 0.05; done\n"


@pytest.fixture
def root(source, tmp_path):
    packages = sorted((source / "build/packages").glob("*_amd64.deb"))
    if not packages:
        pytest.skip("there are no packages: scripts/package makes them")
    made = CleanRoot("amd64", packages, tmp_path)
    shutil.copy(source / "packaging/init/bootlume", made.changes / "init-script")
    (made.changes / "usr/libexec").mkdir(parents=True)
    shutil.copy(source / "packaging/init/overlay-link", made.changes / "usr/libexec/bootlume-overlay-link")
    shutil.copy(booted.kernel_tree() / "bin/busybox", made.changes / "busybox")
    return made


@pytest.mark.parametrize("tools", [DEBIAN, BUSYBOX], ids=["debian", "busybox"])
def test_a_splash_is_started_seen_and_ended(root, tools):
    done = root.run(
        f"""{INSTALL}
{PREPARE}{tools}
said $splash status
said $splash start
{WAIT}
said $splash status
said $splash start
tr '\\0' '|' </proc/$(cat /var/run/bootlume.pid)/cmdline; echo
stat -c %a /desk/tmp/.bootlume
said $splash stop
said $splash status
said $splash stop
said $splash fly
rm -r /dev/v4l
said $splash start
"""
    )
    assert done.returncode == 0, done.stderr
    assert done.stdout.splitlines() == [
        "3 bootlume does not run",
        "0 Starting bootlume: OK",
        "0 bootlume runs",
        "0 Starting bootlume: it runs already",
        "/usr/sbin/bootlume|The title|One line.\\nAnother.|",
        "600",
        "0 Stopping bootlume: OK",
        "3 bootlume does not run",
        "0 Stopping bootlume: OK",
        "2 Usage: /init-script {start|stop|restart|force-reload|status}",
        "1 Starting bootlume: there is no display",
    ]
