"""The tree as an integrator builds it: every build type, both compilers, each option off, and a cross build."""

import os
import subprocess

import pytest

from desk import SOURCE, Desk

WORK = SOURCE / "build/integration"
COMPILERS = {"gcc": ("gcc", "g++"), "clang": ("clang-14", "clang++-14")}
TYPES = ("Debug", "RelWithDebInfo", "Release", "MinSizeRel")

SERVER = {
    "sbin/bootlume",
    "sbin/bootlume-init",
    "share/bootlume/early.sh",
    "share/bootlume/fontconfig/etc/fonts/fonts.conf",
    "share/bootlume/fontconfig/usr/local/share/fonts",
    "share/bootlume/fontconfig/usr/share/fonts",
    "share/bootlume/fontconfig/var/cache/fontconfig",
    "share/doc/bootlume/examples/trace_config",
}
CLIENT = {
    "bin/bootlumectl",
    "include/bootlume-client.h",
    "share/bash-completion/completions/bootlumectl",
    "share/pkgconfig/bootlume-client.pc",
}
SYSTEMD = {
    "lib/systemd/system/bootlume-early.service",
    "lib/systemd/system/sysinit.target.wants/bootlume-early.service",
    "lib/tmpfiles.d/bootlume.conf",
    "lib/systemd/system/bootlume-display.service",
    "lib/systemd/system/bootlume.service",
    "lib/udev/rules.d/70-bootlume.rules",
}
QUIT_UNITS = {f"lib/systemd/system/bootlume-quit{kind}.service" for kind in ("", "@", "-after@")}
SYSV = {
    "libexec/bootlume-overlay-link",
    "share/doc/bootlume/examples/inittab",
    "share/doc/bootlume/examples/mdev.conf",
}
TOOLS = {
    "bin/bootlume-preview",
    "lib/bootlume/libcairo-recorder.so",
    "lib/bootlume/libvirtual-device.so",
    "share/bash-completion/completions/bootlume-preview",
    "share/bootlume/catalogue.tsv",
}


def cmake(folder, *options, environment=None):
    """Configures and builds the tree in a folder below build/; gives all that was said."""
    said = ""
    # The generator is the one that every machine has; nobody's variables reach in.
    for words in (
        ["cmake", "-G", "Unix Makefiles", "-S", SOURCE, "-B", folder, *options],
        ["cmake", "--build", folder, "-j", str(os.cpu_count())],
    ):
        done = subprocess.run(
            words,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
            env={**os.environ, **(environment or {})},
        )
        said += done.stdout
        assert done.returncode == 0, said[-5000:]
    return said


def installed(folder, destination):
    """The files below the destination, without the manuals, which need their compiler."""
    subprocess.run(
        ["cmake", "--install", folder], check=True, capture_output=True, env={**os.environ, "DESTDIR": str(destination)}
    )
    files = {str(p.relative_to(destination)) for p in destination.rglob("*") if p.is_symlink() or p.is_file()}
    return {name for name in files if "/man/" not in name}


def below(prefix, names):
    return {f"{prefix}/{name}" for name in names}


@pytest.mark.parametrize("build_type", TYPES)
@pytest.mark.parametrize("compiler", COMPILERS)
def test_every_build_type_builds_without_a_warning_and_runs(compiler, build_type, build_dir, tmp_path):
    c, cxx = COMPILERS[compiler]
    prefix = tmp_path / "prefix"
    folder = WORK / f"{compiler}-{build_type}"
    said = cmake(
        folder,
        f"-DCMAKE_BUILD_TYPE={build_type}",
        f"-DCMAKE_C_COMPILER={c}",
        f"-DCMAKE_CXX_COMPILER={cxx}",
        f"-DCMAKE_INSTALL_PREFIX={prefix}",
    )
    assert "warning" not in said.lower()
    subprocess.run(["cmake", "--install", folder], check=True, capture_output=True)
    with Desk(bootlume=prefix / "sbin/bootlume", library=build_dir / "lib/libvirtual-device.so") as desk:
        splash = desk.start("Title", "Line")
        splash.screen.wait_for_frame(3)
        assert splash.quit() == 0
    # Assertions stand: their texts are in the program.
    assert (
        b"args.size()" in (prefix / "sbin/bootlume").read_bytes()
        or b"nargs > 0" in (prefix / "sbin/bootlume").read_bytes()
    )


@pytest.mark.parametrize(
    "options, files",
    [
        (("-DBOOTLUME_CLIENT=OFF",), SERVER | SYSTEMD),
        (("-DBOOTLUME_SYSTEMD=OFF",), SERVER | CLIENT),
        (("-DBOOTLUME_SYSTEMD=OFF", "-DBOOTLUME_CLIENT=OFF"), SERVER),
        (("-DBOOTLUME_SYSV=ON",), SERVER | CLIENT | SYSTEMD | QUIT_UNITS | SYSV),
        (("-DBOOTLUME_PREVIEW=ON",), SERVER | CLIENT | SYSTEMD | QUIT_UNITS | TOOLS),
    ],
    ids=lambda value: " ".join(value) if isinstance(value, tuple) else "",
)
def test_what_is_installed_is_what_the_options_ask_for(options, files, tmp_path):
    folder = WORK / "options"
    defaults = ("-DBOOTLUME_CLIENT=ON", "-DBOOTLUME_SYSTEMD=ON", "-DBOOTLUME_SYSV=OFF", "-DBOOTLUME_PREVIEW=OFF")
    cmake(folder, "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_INSTALL_PREFIX=/opt/splash", *defaults, *options)
    etc = set()
    if "-DBOOTLUME_SYSTEMD=OFF" not in options:
        etc |= {"etc/opt/splash/default/bootlume"}
    if "-DBOOTLUME_SYSV=ON" in options:
        etc |= {"etc/opt/splash/init.d/bootlume"}
    assert installed(folder, tmp_path) == below("opt/splash", files) | etc
    for name in installed(folder, tmp_path):
        if "/systemd/" in name or "/init.d/" in name:
            text = (tmp_path / name).read_text()
            assert "/usr/sbin/" not in text and "/usr/share/" not in text and " /etc/default" not in text
    if "-DBOOTLUME_SYSTEMD=OFF" not in options:
        unit = (tmp_path / "opt/splash/lib/systemd/system/bootlume.service").read_text()
        assert "\nExecStart=/opt/splash/sbin/bootlume " in unit


def test_every_folder_of_an_installation_can_be_chosen(tmp_path):
    folder = WORK / "folders"
    names = {"BINDIR": "b", "SBINDIR": "s", "DATADIR": "d", "SYSCONFDIR": "/e", "DOCDIR": "o", "INCLUDEDIR": "i"}
    chosen = [f"-DCMAKE_INSTALL_{key}={value}" for key, value in names.items()]
    cmake(
        folder,
        "-DCMAKE_INSTALL_PREFIX=/p",
        "-DBOOTLUME_UNIT_DIR=/u",
        "-DBOOTLUME_UDEV_DIR=/v",
        "-DBOOTLUME_TMPFILES_DIR=/t",
        *chosen,
    )
    tops = {"/".join(name.split("/")[:2]) for name in installed(folder, tmp_path) if name.startswith("p/")}
    assert tops == {"p/b", "p/s", "p/d", "p/o", "p/i"}
    assert {path.name for path in tmp_path.iterdir()} == {"p", "e", "t", "u", "v"}
    assert "ExecStart=/p/s/bootlume " in (tmp_path / "u/bootlume.service").read_text()


FLAGS = (
    "-mthumb -mfpu=neon -mfloat-abi=hard -mcpu=cortex-a9 -O2 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 "
    "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FORTIFY_SOURCE=2 -Wformat -Wformat-security"
)


@pytest.fixture(scope="session")
def bare_sysroot(tmp_path_factory):
    """The board's sysroot without any library of development but cairo's and Boost's headers."""
    done = subprocess.run(
        ["bash", "-c", ". scripts/lib/roots.sh && need_armhf && echo $BOOTLUME_SYSROOT"],
        cwd=SOURCE,
        capture_output=True,
        text=True,
        check=True,
    )
    whole = done.stdout.splitlines()[-1]
    bare = tmp_path_factory.mktemp("sysroot") / "root"
    subprocess.run(["cp", "-a", "--reflink=auto", whole, bare], check=True)
    for name in ("CLI", "nlohmann", "SDL2", "chafa", "webp", "gtest", "gmock", "unicode"):
        subprocess.run(["rm", "-rf", bare / "usr/include" / name], check=True)
    for name in ("sdl2", "chafa", "libwebp", "libwebpmux", "gtest", "gmock", "icu-uc"):
        for path in (bare / "usr/lib/arm-linux-gnueabihf/pkgconfig").glob(f"{name}*.pc"):
            path.unlink()
    return bare


def test_a_plain_toolchain_file_and_a_bare_sysroot_will_do(bare_sysroot, tmp_path):
    """With the flags that image builders add, 64-bit times and offsets among them."""
    toolchain = tmp_path / "toolchain.cmake"
    toolchain.write_text(
        f"""set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_SYSROOT {bare_sysroot})
set(CMAKE_C_FLAGS "{FLAGS}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "{FLAGS}" CACHE STRING "")
set(CMAKE_CXX_FLAGS_RELEASE "-DNDEBUG" CACHE STRING "")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
"""
    )
    folder = tmp_path / "build"
    libraries = bare_sysroot / "usr/lib/arm-linux-gnueabihf/pkgconfig"
    said = cmake(
        folder,
        f"-DCMAKE_TOOLCHAIN_FILE={toolchain}",
        "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_INSTALL_PREFIX=/usr",
        "-DBOOTLUME_CLIENT=OFF",
        "-DBOOTLUME_UNIT_DIR=/usr/lib/systemd/system",
        "-DBOOTLUME_UDEV_DIR=/usr/lib/udev",
        environment={
            "PKG_CONFIG_SYSROOT_DIR": str(bare_sysroot),
            "PKG_CONFIG_LIBDIR": f"{libraries}:{bare_sysroot}/usr/share/pkgconfig",
        },
    )
    assert "warning" not in said.lower()
    assert installed(folder, tmp_path / "image") == below("usr", SERVER | SYSTEMD) | {"etc/default/bootlume"}
    machine = subprocess.run(
        ["readelf", "-h", folder / "bin/bootlume"], capture_output=True, text=True, check=True
    ).stdout
    assert "ARM" in machine
