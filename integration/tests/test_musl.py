"""Server and client against the headers of musl. Debian has no C++ library for it: nothing is linked."""

import platform
from pathlib import Path

from builds import build

MUSL = f"{platform.machine()}-linux-musl"
CXX_HEADERS = "/usr/lib/llvm-14/include/c++/v1"
INCLUDE = Path("/usr/include")
# What musl has not: the kernel's headers, and libraries that are nothing but headers.
ALONGSIDE = {name: INCLUDE / name for name in ("linux", "asm-generic", "boost", "CLI", "nlohmann")}
ALONGSIDE["asm"] = INCLUDE / f"{platform.machine()}-linux-gnu/asm"

TOOLCHAIN = f"""set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET {MUSL})
set(CMAKE_CXX_COMPILER_TARGET {MUSL})
set(musl "-nostdlibinc -isystem /usr/include/{MUSL} -isystem @ALONGSIDE@")
set(CMAKE_C_FLAGS_INIT "${{musl}}")
set(CMAKE_CXX_FLAGS_INIT "-nostdinc++ -isystem {CXX_HEADERS} -D_LIBCPP_HAS_MUSL_LIBC ${{musl}}")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_CXX_LINK_EXECUTABLE "<CMAKE_COMMAND> -E touch <TARGET>")
"""


def test_server_and_client_compile_against_musl(tmp_path):
    alongside = tmp_path / "include"
    alongside.mkdir()
    for name, folder in ALONGSIDE.items():
        (alongside / name).symlink_to(folder)
    toolchain = tmp_path / "toolchain.cmake"
    toolchain.write_text(TOOLCHAIN.replace("@ALONGSIDE@", str(alongside)))
    said = build(
        tmp_path / "build",
        f"-DCMAKE_TOOLCHAIN_FILE={toolchain}",
        *(f"-D{name}_INCLUDE_DIR={alongside}" for name in ("BOOST", "CLI11", "NLOHMANN_JSON")),
    )
    # The number of a device's request is a signed one there.
    assert [line for line in said.splitlines() if "warning:" in line and "[-Wsign-conversion]" not in line] == []
