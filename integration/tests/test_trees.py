"""What can be seen of the Buildroot tree and the Yocto layer without Buildroot and Yocto."""

import fnmatch
import re

import pytest

from builds import expected
from desk import SOURCE

BUILDROOT = SOURCE / "integration/buildroot"
LAYER = SOURCE / "integration/yocto/meta-bootlume"
RECIPE = next((LAYER / "recipes-core/bootlume").glob("*.bb"))
MAKEFILE = BUILDROOT / "package/bootlume/bootlume.mk"
VERSION = re.search(r"project\(bootlume VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]

# What the menu of Buildroot says of toolchain and packages; those that ours selects are without a prompt here.
SURROUNDINGS = """
config BR2_EXTERNAL_BOOTLUME_PATH
    string
{toolchain}
{packages}
source "{tree}/package/bootlume/Config.in"
source "{tree}/package/droid-fallback/Config.in"
"""
TOOLCHAIN = (
    "BR2_INSTALL_LIBSTDCPP",
    "BR2_TOOLCHAIN_GCC_AT_LEAST_11",
    "BR2_TOOLCHAIN_HAS_THREADS",
    "BR2_TOOLCHAIN_USES_GLIBC",
    "BR2_USE_MMU",
    "BR2_USE_WCHAR",
)
PACKAGES = ("BOOST", "CAIRO", "FONTCONFIG", "DEJAVU", "DEJAVU_SANS", "CLI11", "JSON_FOR_MODERN_CPP")


def menu(folder, missing=None):
    kconfiglib = pytest.importorskip("kconfiglib")
    toolchain = "".join(f"config {name}\n    def_bool {'n' if name == missing else 'y'}\n" for name in TOOLCHAIN)
    packages = "".join(f"config BR2_PACKAGE_{name}\n    bool\n" for name in PACKAGES)
    path = folder / "Config.in"
    path.write_text(SURROUNDINGS.format(toolchain=toolchain, packages=packages, tree=BUILDROOT))
    made = kconfiglib.Kconfig(str(path), warn_to_stderr=False)
    assert made.warnings == []
    return made


def test_the_package_selects_what_it_needs(tmp_path):
    made = menu(tmp_path)
    made.syms["BR2_PACKAGE_BOOTLUME"].set_value("y")
    assert all(made.syms[f"BR2_PACKAGE_{name}"].str_value == "y" for name in PACKAGES)
    made.syms["BR2_PACKAGE_BOOTLUME_CTL"].set_value("n")
    assert made.syms["BR2_PACKAGE_CLI11"].str_value == "n"
    made.syms["BR2_PACKAGE_BOOTLUME_CHINESE"].set_value("y")
    assert made.syms["BR2_PACKAGE_DROID_FALLBACK"].str_value == "y"


@pytest.mark.parametrize("missing", TOOLCHAIN)
def test_a_toolchain_without_what_it_needs_cannot_have_it(missing, tmp_path):
    made = menu(tmp_path, missing)
    made.syms["BR2_PACKAGE_BOOTLUME"].set_value("y")
    assert made.syms["BR2_PACKAGE_BOOTLUME"].str_value == "n"


def test_the_defconfig_names_nothing_of_ours_that_is_not_there(tmp_path):
    made = menu(tmp_path)
    named = re.findall(
        r"^(BR2_PACKAGE_\w+)=", (BUILDROOT / "configs/bootlume_imx6_defconfig").read_text(), re.MULTILINE
    )
    assert named and all(made.syms[name].nodes for name in named)


def test_both_are_of_this_version():
    assert f"BOOTLUME_VERSION = {VERSION}\n" in MAKEFILE.read_text()
    assert RECIPE.name == f"bootlume_{VERSION}.bb"


@pytest.mark.parametrize("path", [MAKEFILE, RECIPE], ids=lambda path: path.name)
def test_every_option_that_is_set_is_one_that_there_is(path):
    known = "".join(p.read_text() for p in (SOURCE / "CMakeLists.txt", SOURCE / "cmake/Systemd.cmake"))
    for option in set(re.findall(r"-D(BOOTLUME_\w+)=", path.read_text())):
        assert re.search(rf"\b{option}\b", known), option


def test_the_recipe_packs_every_file_that_is_installed():
    places = {"bindir": "usr/bin", "libdir": "usr/lib", "datadir": "usr/share", "sysconfdir": "etc"}
    places |= {
        "systemd_system_unitdir": "usr/lib/systemd/system",
        "nonarch_base_libdir": "usr/lib",
        "nonarch_libdir": "usr/lib",
    }
    listed = re.findall(r"\$\{(\w+)\}(\S*)", "".join(re.findall(r'FILES:[^=]*= "([^"]*)"', RECIPE.read_text())))
    patterns = [places[variable] + rest for variable, rest in listed if variable in places]
    # What every recipe packs by itself, or into the packages for development and documents.
    patterns += ["usr/bin", "usr/sbin", "usr/libexec", "etc", "usr/include", "usr/share/doc", "usr/share/pkgconfig"]
    patterns += ["usr/share/man"]
    for path in expected("usr", "etc", "CLIENT", "SYSTEMD", "SYSV", "PREVIEW"):
        assert any(fnmatch.fnmatch(path, p) or path.startswith(p + "/") for p in patterns), path


def test_the_licence_is_said_as_it_is():
    assert 'LICENSE = "CLOSED"' in RECIPE.read_text()
    assert "BOOTLUME_REDISTRIBUTE = NO" in MAKEFILE.read_text()
    assert "No licence has been chosen yet." in (SOURCE / "README.md").read_text()
