"""The tree as an integrator builds it: every build type, both compilers, each option on and off."""

import shutil
import signal
import subprocess

import pytest

from builds import WORK, build, expected, install, run, without_manuals
from desk import SOURCE, Desk

COMPILERS = {"gcc": ("gcc", "g++"), "clang": ("clang-14", "clang++-14")}
TYPES = ("Debug", "RelWithDebInfo", "Release", "MinSizeRel")
DEFAULTS = {"CLIENT": "ON", "SYSTEMD": "ON", "SYSV": "OFF", "PREVIEW": "OFF", "INITRAMFS": "OFF"}
# What a build machine must have, in the folder that is its whole path.
NEEDED = ("cmake", "make", "gcc", "g++", "as", "ld", "ar", "ranlib", "pkg-config")
MISTAKE = """#include "boost/process/detail/file_handle.h"
int main() { return boost::process::detail::file_handle().get(); }
"""


def assert_assertions_stand(folder, compiler):
    """A program that makes a mistake with a product's library is ended, and told which it is."""
    program = folder / "mistake"
    subprocess.run(
        [compiler, "-std=c++17", f"-I{SOURCE}/utility-library/src", "-x", "c++", "-", "-x", "none"]
        + [folder / "lib/libutility.a", "-pthread", "-o", program],
        input=MISTAKE,
        text=True,
        check=True,
    )
    done = subprocess.run([program], capture_output=True, text=True, check=False)
    assert done.returncode == -signal.SIGABRT
    assert "detail/file_handle.cpp" in done.stderr
    assert "Assertion `handle_ != invalid_value()' failed." in done.stderr


@pytest.mark.parametrize("build_type", TYPES)
@pytest.mark.parametrize("compiler", COMPILERS)
def test_every_build_type_builds_without_a_warning_and_runs(compiler, build_type, build_dir, tmp_path):
    c, cxx = COMPILERS[compiler]
    prefix = tmp_path / "prefix"
    folder = WORK / f"{compiler}-{build_type}"
    said = build(
        folder,
        f"-DCMAKE_BUILD_TYPE={build_type}",
        f"-DCMAKE_C_COMPILER={c}",
        f"-DCMAKE_CXX_COMPILER={cxx}",
        f"-DCMAKE_INSTALL_PREFIX={prefix}",
    )
    assert "warning" not in said.lower()
    run(["cmake", "--install", folder])
    with Desk(bootlume=prefix / "sbin/bootlume", library=build_dir / "lib/libvirtual-device.so") as desk:
        splash = desk.start("Title", "Line")
        splash.screen.wait_for_frame(3)
        run([prefix / "bin/bootlumectl", "--root", desk.root, "quit"])
        assert splash.wait() == 0
    assert_assertions_stand(folder, cxx)
    # Nothing of a desk is made for a device.
    assert {path.name for path in (folder / "bin").iterdir()} == {"bootlume", "bootlumectl"}
    assert not list((folder / "lib").glob("*.so"))


@pytest.mark.parametrize(
    "changes",
    [
        {},
        {"CLIENT": "OFF"},
        {"SYSTEMD": "OFF"},
        {"SYSTEMD": "OFF", "CLIENT": "OFF"},
        {"SYSTEMD": "OFF", "SYSV": "ON"},
        {"SYSV": "ON"},
        {"PREVIEW": "ON"},
        {"PREVIEW": "ON", "CLIENT": "OFF"},
        {"INITRAMFS": "ON"},
    ],
    ids=lambda changes: " ".join(f"{key}={value}" for key, value in changes.items()) or "defaults",
)
def test_what_is_installed_is_what_the_guide_says(changes, tmp_path):
    folder = WORK / "options"
    options = {**DEFAULTS, **changes}
    build(
        folder,
        "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_INSTALL_PREFIX=/opt/splash",
        *(f"-DBOOTLUME_{key}={value}" for key, value in options.items()),
    )
    files = install(folder, tmp_path)
    asked = [key for key, value in options.items() if value == "ON"]
    assert files == expected("opt/splash", "etc/opt/splash", *asked)
    for name in files:
        if "/systemd/" in name or "/init.d/" in name:
            text = (tmp_path / name).read_text()
            assert "/usr/sbin/" not in text and "/usr/share/" not in text and " /etc/default" not in text
    if options["SYSTEMD"] == "ON":
        unit = (tmp_path / "opt/splash/lib/systemd/system/bootlume.service").read_text()
        assert "\nExecStart=/opt/splash/sbin/bootlume " in unit


def test_every_folder_of_an_installation_can_be_chosen(tmp_path):
    folder = WORK / "folders"
    names = {"BINDIR": "b", "SBINDIR": "s", "DATADIR": "d", "SYSCONFDIR": "/e", "DOCDIR": "o", "INCLUDEDIR": "i"}
    names |= {"LIBDIR": "l", "MANDIR": "m"}
    build(
        folder,
        "-DCMAKE_INSTALL_PREFIX=/p",
        "-DBOOTLUME_PREVIEW=ON",
        "-DBOOTLUME_UNIT_DIR=/u",
        "-DBOOTLUME_UDEV_DIR=/v",
        "-DBOOTLUME_TMPFILES_DIR=/t",
        "-DBOOTLUME_PYTHON_DIR=/y",
        *(f"-DCMAKE_INSTALL_{key}={value}" for key, value in names.items()),
    )
    tops = {"/".join(name.split("/")[:2]) for name in install(folder, tmp_path) if name.startswith("p/")}
    assert tops == {f"p/{name}" for name in "bsdoilm"}
    assert {path.name for path in tmp_path.iterdir()} == {"p", "e", "t", "u", "v", "y"}
    assert "ExecStart=/p/s/bootlume " in (tmp_path / "u/bootlume.service").read_text()


def test_flags_for_large_files_leave_the_preview_whole(tmp_path):
    """The virtual device answers calls that such flags give other names."""
    folder = WORK / "large-files"
    build(
        folder,
        f"-DCMAKE_INSTALL_PREFIX={tmp_path}",
        "-DBOOTLUME_PREVIEW=ON",
        "-DCMAKE_C_FLAGS=-D_FILE_OFFSET_BITS=64",
        "-DCMAKE_CXX_FLAGS=-D_FILE_OFFSET_BITS=64",
    )
    run(["cmake", "--install", folder])
    run([tmp_path / "bin/bootlume-preview", "--png", tmp_path / "page.png", "Title", "Line"])
    assert (tmp_path / "page.png").read_bytes().startswith(b"\x89PNG")


def test_cmake_a_compiler_and_pkg_config_are_all_that_a_build_needs(tmp_path):
    tools = tmp_path / "tools"
    tools.mkdir()
    for name in NEEDED:
        (tools / name).symlink_to(shutil.which(name))
    environment = {"PATH": str(tools), "CMAKE_C_COMPILER_LAUNCHER": "", "CMAKE_CXX_COMPILER_LAUNCHER": ""}
    folder = tmp_path / "build"
    # Without the manuals' compilers, which would be found beside the path.
    build(folder, "-DCMAKE_INSTALL_PREFIX=/opt/splash", "-DSCDOC=OFF", "-DLOWDOWN=OFF", environment=environment)
    files = install(folder, tmp_path / "image", environment)
    assert files == without_manuals(expected("opt/splash", "etc/opt/splash", "CLIENT", "SYSTEMD"))
