"""Cross builds with toolchain files as image builders write them, against a sysroot with next to nothing in it."""

import subprocess

import pytest

from builds import build, expected, install, run, without_manuals
from desk import SOURCE

TRIPLET = "arm-linux-gnueabihf"
PROCESSOR = "-mthumb -mfpu=neon -mfloat-abi=hard -march=armv7-a"
LARGE = "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64"

# Buildroot's: the release flags are its own, and libraries are shared unless a package says otherwise.
BUILDROOT = f"""set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER {TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER {TRIPLET}-g++)
set(CMAKE_SYSROOT @SYSROOT@)
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
foreach(language C CXX)
  set(CMAKE_${{language}}_FLAGS
      "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE {LARGE} {PROCESSOR} -O2 -g0 -D_FORTIFY_SOURCE=1" CACHE STRING "")
  set(CMAKE_${{language}}_FLAGS_RELEASE " -DNDEBUG" CACHE STRING "")
endforeach()
set(CMAKE_INSTALL_SO_NO_EXE 0)
set(CMAKE_FIND_ROOT_PATH @SYSROOT@)
"""
BUILDROOT_OPTIONS = ("-DBUILD_SHARED_LIBS=ON", "-DBUILD_TESTING=OFF", "-DCMAKE_INSTALL_RUNSTATEDIR=/run")

# Yocto's: no build type, the sysroot among the flags, and paths of the build machine taken out by them.
YOCTO = f"""set(CMAKE_CROSSCOMPILING TRUE)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER {TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER {TRIPLET}-g++)
set(flags "{PROCESSOR} -fstack-protector-strong -O2 -D_FORTIFY_SOURCE=2 -Wformat -Wformat-security")
string(APPEND flags " -Werror=format-security {LARGE} --sysroot=@SYSROOT@ -pipe -g -feliminate-unused-debug-types")
string(APPEND flags " -ffile-prefix-map=@SYSROOT@= -fvisibility-inlines-hidden")
set(CMAKE_C_FLAGS "${{flags}}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "${{flags}}" CACHE STRING "")
set(CMAKE_CXX_LINK_FLAGS "-Wl,-O1 -Wl,--hash-style=gnu -Wl,--as-needed -Wl,-z,relro,-z,now" CACHE STRING "")
set(CMAKE_SYSROOT @SYSROOT@)
set(CMAKE_FIND_ROOT_PATH @SYSROOT@)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
list(APPEND CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES /usr/include)
"""
YOCTO_OPTIONS = ("-DCMAKE_NO_SYSTEM_FROM_IMPORTED=1", "-DCMAKE_INSTALL_SBINDIR:PATH=sbin", "-DCMAKE_INSTALL_LIBDIR=lib")

BOTH = """set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
"""
STYLES = {"buildroot": (BUILDROOT, BUILDROOT_OPTIONS), "yocto": (YOCTO, YOCTO_OPTIONS)}


@pytest.fixture(scope="session")
def bare_sysroot(tmp_path_factory):
    """The board's sysroot without anything for development but the C library, cairo's and Boost's headers."""
    whole = run(["bash", "-c", f"cd '{SOURCE}' && . scripts/lib/roots.sh && need_armhf && echo $BOOTLUME_SYSROOT"])
    bare = tmp_path_factory.mktemp("sysroot") / "root"
    subprocess.run(["cp", "-a", "--reflink=auto", whole.splitlines()[-1], bare], check=True)
    for name in ("CLI", "nlohmann", "SDL2", "chafa", "webp", "gtest", "gmock", "unicode", "csv.h", "gettext-po.h"):
        subprocess.run(["rm", "-rf", bare / "usr/include" / name], check=True)
    for name in ("sdl2", "chafa", "libwebp", "gtest", "gmock", "icu-uc"):
        for path in (bare / f"usr/lib/{TRIPLET}/pkgconfig").glob(f"{name}*.pc"):
            path.unlink()
    return bare


@pytest.mark.parametrize("style", STYLES)
def test_a_toolchain_file_and_a_bare_sysroot_will_do(style, bare_sysroot, tmp_path):
    text, options = STYLES[style]
    toolchain = tmp_path / "toolchain.cmake"
    toolchain.write_text((text + BOTH).replace("@SYSROOT@", str(bare_sysroot)))
    libraries = bare_sysroot / "usr/lib" / TRIPLET / "pkgconfig"
    folder = tmp_path / "build"
    said = build(
        folder,
        "--no-warn-unused-cli",  # what is said to every package alike
        f"-DCMAKE_TOOLCHAIN_FILE={toolchain}",
        "-DCMAKE_INSTALL_PREFIX=/usr",
        "-DBOOTLUME_CLIENT=OFF",
        "-DBOOTLUME_UNIT_DIR=/usr/lib/systemd/system",
        "-DBOOTLUME_UDEV_DIR=/usr/lib/udev",
        "-DBOOTLUME_TMPFILES_DIR=/usr/lib/tmpfiles.d",
        *options,
        environment={
            "PKG_CONFIG_SYSROOT_DIR": str(bare_sysroot),
            "PKG_CONFIG_LIBDIR": f"{libraries}:{bare_sysroot}/usr/share/pkgconfig",
        },
    )
    assert "warning" not in said.lower()
    files = install(folder, tmp_path / "image")
    assert without_manuals(files) == without_manuals(expected("usr", "etc", "SYSTEMD"))
    about = run(["readelf", "-hd", tmp_path / "image/usr/sbin/bootlume"])
    assert "Machine:                           ARM" in about
    # Such libraries are of the system: ours are in the program.
    assert "libcairo.so.2" in about and "libbootlume" not in about and "libutility" not in about
    done = subprocess.run(
        ["qemu-arm-static", "-L", bare_sysroot, tmp_path / "image/usr/sbin/bootlume"],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 255 and "Couldn't open v4l2 overlay device." in done.stdout, done.stderr
