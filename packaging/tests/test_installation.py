"""The packages in a clean Debian root: they start, show their page, answer, and leave without a trace.

The armhf packages run under user-mode emulation.
"""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest
from PIL import Image

from desk import Screen, pictures, python_environment

HERE = Path(__file__).resolve().parent
# The package manager's own memory and the machine's font cache, and nothing of the packages.
PACKAGE_MANAGER = re.compile(
    r"var/(log/dpkg\.log|cache/fontconfig/.*|lib/dpkg/.*|cache/apt/.*bin)|packages/.*|answers/.*|desk/.*"
)

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="only root may enter a root")

INSTALL = "dpkg -i /packages/*.deb >/answers/install 2>&1"
PURGE = "dpkg --purge $(dpkg-query -f '${Package}\\n' -W 'bootlume*') >/answers/purge 2>&1"
REMOVE = "dpkg --remove $(dpkg-query -f '${Package}\\n' -W 'bootlume*') >/answers/remove 2>&1"
# What the service starts, on the virtual device of the tools.
START = """
export FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig
mkdir -p /desk
rm -f /desk/screen /desk/tmp/.bootlume # of a splash before: it would be taken for this one's
export VIRTUAL_DEVICE_ROOT=/desk LD_PRELOAD=$(echo /usr/lib/*/bootlume/libvirtual-device.so)
bootlume "Brem K5 Start" "first line\\nsecond line" >/answers/log 2>&1 & splash=$!
unset LD_PRELOAD
"""
WAIT_FOR_FRAMES = """
frames() { od -An -tu8 -j32 -N8 /desk/screen 2>/dev/null | tr -d ' '; }
for try in $(seq 3000); do
  n=$(frames); [ "${n:-0}" -lt 12 ] || [ ! -S /desk/tmp/.bootlume ] || break
  sleep 0.01
done
"""


class CleanRoot:
    """One clean root and the changes that commands made in it."""

    def __init__(self, architecture, packages, folder):
        made = subprocess.run([HERE / "clean_root.sh", architecture], capture_output=True, text=True, check=False)
        if made.returncode != 0:
            pytest.skip(f"there is no clean {architecture} root: {made.stderr.strip()[-300:]}")
        self.path = Path(made.stdout.strip())
        self.architecture = architecture
        self.folder = folder
        self.changes = folder / "upper"
        (self.changes / "answers").mkdir(parents=True)
        (self.changes / "packages").mkdir()
        for package in packages:
            shutil.copy(package, self.changes / "packages")

    def run(self, script):
        return subprocess.run(
            [HERE / "in_root.sh", self.path, self.folder, "bash", "-euc", script],
            capture_output=True,
            text=True,
            check=False,
            timeout=300,
        )

    def answer(self, name):
        return (self.changes / "answers" / name).read_text()

    def leftovers(self):
        """What is in the root now and was not, or was and is not: as paths."""
        found = []
        for path in sorted(self.changes.rglob("*")):
            name = str(path.relative_to(self.changes))
            below = self.path / name
            if PACKAGE_MANAGER.fullmatch(name) or name in ("packages", "answers", "desk"):
                continue
            if path.is_dir() and not path.is_symlink() and below.is_dir():
                continue
            found.append(name)
        return found


@pytest.fixture(params=["amd64", "armhf"])
def root(request, source, tmp_path):
    folder = source / "build/packages"
    packages = sorted(folder.glob(f"*_{request.param}.deb"))
    if not packages:
        pytest.skip(f"there are no {request.param} packages: scripts/package makes them")
    packages += folder.glob("*_all.deb")
    made = CleanRoot(request.param, packages, tmp_path)
    if made.run("true").returncode != 0:
        pytest.skip(f"the {request.param} root cannot be entered: {made.run('true').stderr}")
    return made


def reference_page(build_dir, source, number):
    """The same page drawn by this build in the package's fonts: the ring stands where it stood in frame `number`."""
    script = (
        "import sys\n"
        "from desk import Desk\n"
        f"with Desk('{build_dir}/bin/bootlume', '{build_dir}/lib/libvirtual-device.so') as desk:\n"
        "    splash = desk.start('Brem K5 Start', 'first line\\\\nsecond line', refresh=20)\n"
        f"    frame = splash.screen.wait_for_frame({number})\n"
        f"    assert frame.number == {number}\n"
        "    sys.stdout.buffer.write(frame.pixels)\n"
    )
    done = subprocess.run(
        [HERE / "device_fonts.sh", "/usr/bin/python3", "-c", script],
        capture_output=True,
        check=False,
        env={**python_environment(), "FONTCONFIG_SYSROOT": str(source / "packaging/fontconfig")},
    )
    assert done.returncode == 0, done.stderr.decode()
    return done.stdout[-pictures.SIZE :]


def test_installed_splash_shows_its_page_and_answers(root, build_dir, source):
    done = root.run(
        INSTALL
        + START
        + WAIT_FOR_FRAMES
        + """
bootlumectl --root /desk status >/answers/status
bootlumectl --root /desk quit --timeout 60
cp /desk/screen /answers/screen
bootlumectl --root /desk text A B 2>/answers/refused || echo $? >/answers/refused-status
bootlumectl --version >/answers/version
wait $splash; echo $? >/answers/splash-status
"""
    )
    assert done.returncode == 0, done.stderr + root.answer("install")
    assert root.answer("status").startswith("a splash answers at /desk/tmp/.bootlume: process ")
    assert root.answer("splash-status") == "0\n" and "ERROR" not in root.answer("log")
    assert root.answer("refused-status") == "3\n" and "no splash" in root.answer("refused")
    assert root.answer("version").startswith("bootlumectl ")

    screen = Screen(root.changes / "answers/screen")
    assert screen.frame_number >= 12 and not screen.streaming
    frame = screen.frame()
    assert frame.pixels == reference_page(build_dir, source, (frame.number - 2) % 66 + 2 + 66)


def test_installed_preview_draws_the_page_and_passes_its_example(root, build_dir, source):
    done = root.run(
        INSTALL
        + """
bootlume-preview --png /answers/page.png "Brem K5 Start" "first line\\nsecond line"
bootlume-preview --check /usr/share/bootlume/catalogue.tsv >/answers/table
ls -A /tmp >/answers/temporary
"""
    )
    assert done.returncode == 0, done.stderr
    assert root.answer("table").splitlines()[-1] == "36 pages: good"
    assert root.answer("temporary") == ""
    with Image.open(root.changes / "answers/page.png") as picture:
        assert picture.convert("RGB").tobytes() == pictures.image(reference_page(build_dir, source, 2)).tobytes()


def test_service_is_enabled_and_its_fonts_are_found(root):
    done = root.run(
        INSTALL
        + """
systemctl is-enabled bootlume.service >/answers/enabled
systemctl is-enabled bootlume-quit@multi-user.service >/answers/quit || true
FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig fc-match --format='%{file}' 'Univers Next W1G Medium' >/answers/font
FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig strace -e trace=openat fc-match x 2>&1 |
  grep -c 'cache-[0-9].*= [0-9]' >/answers/cache || true
"""
    )
    assert done.returncode == 0, done.stderr
    assert root.answer("enabled") == "enabled\n"
    assert root.answer("quit") == "disabled\n"
    assert root.answer("font") == "/usr/share/fonts/truetype/liberation/LiberationSansNarrow-Regular.ttf"
    if root.architecture == "amd64":  # nothing is traced under emulation
        assert int(root.answer("cache")) >= 4


def test_a_font_cache_is_made_at_installation_and_whenever_fonts_come(root):
    """The machine's own fonts have had one, which is taken away; its own trigger is left out. A cache that is missing
    or does not fit is made by whatever looks for a font."""
    done = root.run(
        f"""
caches() {{ find /var/cache/fontconfig -name '*.cache-*' -printf '%f %T@\\n' | sort; }}
look() {{ caches; FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig fc-match x >/dev/null; echo then; caches; }}
rm -f /var/cache/fontconfig/*
{INSTALL}
look >/answers/installed
rm -f /var/cache/fontconfig/*
dpkg-trigger --no-await --by-package=fonts-dejavu-core /usr/share/fonts
dpkg --triggers-only bootlume-bin >/answers/trigger 2>&1
look >/answers/triggered
find /usr/share/fonts -type d -printf '%T@ ' >/answers/dates
"""
    )
    assert done.returncode == 0, done.stderr
    for when in ("installed", "triggered"):
        before, after = root.answer(when).split("then\n")
        assert before and before == after, when
    # An image that keeps whole seconds only has to keep the cache valid.
    assert re.fullmatch(r"(\d+\.0+ )+", root.answer("dates"))


def test_purging_leaves_nothing_behind(root):
    done = root.run(
        INSTALL
        + START
        + WAIT_FOR_FRAMES
        + f"""
kill -INT $splash; wait $splash
systemctl enable bootlume-quit@multi-user.service 2>/dev/null
test -L /etc/systemd/system/multi-user.target.wants/bootlume-quit@multi-user.service
mkdir -p /opt; : >/tmp/.bootlume
{PURGE}
dpkg -l 'bootlume*' 2>/dev/null | grep -c '^ii' >/answers/still || true
"""
    )
    assert done.returncode == 0, done.stderr
    assert root.answer("still") == "0\n"
    assert root.leftovers() == []


def test_removing_keeps_the_settings_and_nothing_else(root):
    done = root.run(f"{INSTALL}\necho '#mine' >>/etc/default/bootlume\n{REMOVE}")
    assert done.returncode == 0, done.stderr
    # The unit is masked, so that the link that enables it does not call what is not there.
    kept = [name for name in root.leftovers() if "deb-systemd-helper" not in name]
    assert kept == [
        "etc/default/bootlume",
        "etc/systemd/system/bootlume-quit-after@.service",
        "etc/systemd/system/bootlume-quit.service",
        "etc/systemd/system/bootlume-quit@.service",
        "etc/systemd/system/bootlume.service",
        "etc/systemd/system/sysinit.target.wants/bootlume.service",
    ]


def test_reinstalling_after_a_removal_enables_the_service_again(root):
    done = root.run(f"{INSTALL}\n{REMOVE}\n{INSTALL}\nsystemctl is-enabled bootlume.service")
    assert done.returncode == 0 and done.stdout == "enabled\n", done.stderr


def test_a_service_that_was_disabled_stays_so_over_an_upgrade(root):
    done = root.run(
        f"{INSTALL}\nsystemctl disable bootlume.service 2>/dev/null\n{INSTALL}\n"
        "systemctl is-enabled bootlume.service || true"
    )
    assert done.stdout == "disabled\n", done.stderr


def merged(root, folder, name, other, depends):
    """A package of version 1.0.0 with the files of two of today's, unpacked."""
    by_name = {package.name.split("_")[0]: package for package in (root.changes / "packages").iterdir()}
    for package in (by_name[other], by_name[name]):
        shutil.rmtree(folder / "DEBIAN", ignore_errors=True)
        subprocess.run(["dpkg-deb", "-R", package, folder], check=True)
    control = folder / "DEBIAN/control"
    changed = ("Version:", "Depends:", "Breaks:", "Replaces:")
    fields = [line for line in control.read_text().strip().splitlines() if not line.startswith(changed)]
    control.write_text("\n".join([f"Version: 1.0.0-1\nDepends: {depends}", *fields, ""]))
    (folder / "DEBIAN/md5sums").unlink()
    return folder


def packages_of_before(root, folder):
    """The two packages that held everything: one of service and programs, one of all that is for a desk."""
    service = merged(root, folder / "service", "bootlume", "bootlume-bin", "fontconfig")
    tools = merged(root, folder / "tools", "bootlume-tools", "bootlume-dev", "bootlume (= 1.0.0-1)")
    shutil.move(service / "usr/lib/python3", tools / "usr/lib/python3")
    (root.changes / "before").mkdir()
    for tree in (service, tools):
        target = root.changes / f"before/{tree.name}.deb"
        subprocess.run(["dpkg-deb", "--root-owner-group", "-b", tree, target], check=True, capture_output=True)


def test_an_upgrade_from_the_two_packages_keeps_service_and_settings(root, tmp_path):
    packages_of_before(root, tmp_path)
    done = root.run(
        """
dpkg -i /before/*.deb >/answers/before 2>&1
echo '#mine' >>/etc/default/bootlume
dpkg --auto-deconfigure -i /packages/*.deb >/answers/install 2>&1 # as apt calls it
dpkg -S /usr/sbin/bootlume /etc/default/bootlume /usr/include/bootlume-client.h >/answers/owners
dpkg --audit >/answers/audit
tail -n 1 /etc/default/bootlume
systemctl is-enabled bootlume.service
"""
    )
    assert done.returncode == 0, done.stderr + root.answer("install")
    assert done.stdout == "#mine\nenabled\n"
    assert root.answer("owners").splitlines() == [
        "bootlume-bin: /usr/sbin/bootlume",
        "bootlume: /etc/default/bootlume",
        "bootlume-dev: /usr/include/bootlume-client.h",
    ]
    assert root.answer("audit") == ""


def test_the_preview_alone_enables_nothing(root):
    done = root.run("dpkg -i /packages/bootlume-bin_*.deb /packages/bootlume-tools_*.deb >/answers/install 2>&1")
    assert done.returncode == 0, root.answer("install")
    assert not [name for name in root.leftovers() if "systemd" in name or "udev" in name or "default" in name]
