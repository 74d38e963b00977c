"""The same commit, packed in another place and at another time, gives the same bytes."""

import shutil
import subprocess

import pytest


def copy_of(source, target):
    """The tree as it stands, without what builds have left in it."""
    listed = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard"], cwd=source, capture_output=True, text=True, check=True
    ).stdout
    for name in listed.splitlines():
        (target / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source / name, target / name, follow_symlinks=False)


def test_packing_twice_gives_the_same_bytes(source, tmp_path):
    packed = {path.name: path for path in (source / "build/packages").glob("*_amd64.deb")}
    if not packed:
        pytest.skip("there are no packages: scripts/package makes them")
    copy_of(source, tmp_path / "another/place")
    subprocess.run(["scripts/package", "amd64"], cwd=tmp_path / "another/place", capture_output=True, check=True)
    again = {path.name: path for path in (tmp_path / "another/place/build/packages").iterdir()}
    assert again.keys() == packed.keys()
    for name, package in packed.items():
        assert package.read_bytes() == again[name].read_bytes(), name
