"""The same tree, packed in another place, at another time and by another person, gives the same bytes."""

import os
import shlex
import shutil
import subprocess

import pytest

A_YEAR = 365 * 24 * 3600
# Objects from a cache would be those of the first build.
ANOTHER_PERSON = {"LC_ALL": "C", "LANGUAGE": "de", "TZ": "Pacific/Kiritimati", "CCACHE_DISABLE": "1"}


def copy_of(source, target):
    """The tree as it stands, without what builds have left in it, as somebody else checked it out long ago."""
    listed = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard"], cwd=source, capture_output=True, text=True, check=True
    ).stdout
    for name in listed.splitlines():
        copied = target / name
        copied.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source / name, copied, follow_symlinks=False)
        if not copied.is_symlink():
            copied.chmod(copied.stat().st_mode & 0o700)
        then = copied.lstat().st_mtime - A_YEAR
        os.utime(copied, (then, then), follow_symlinks=False)


def difference(one, other, folder):
    """What of two packages differs, for whoever has to mend it."""
    for name, package in (("one", one), ("other", other)):
        subprocess.run(["dpkg-deb", "-R", package, folder / name], check=True)
        listing = subprocess.run(["dpkg-deb", "-c", package], capture_output=True, text=True, check=True).stdout
        (folder / name / "listing").write_text(listing)
    return subprocess.run(
        ["diff", "-r", "one", "other"], cwd=folder, capture_output=True, text=True, check=False
    ).stdout


def test_packing_twice_gives_the_same_bytes(source, tmp_path):
    folder = source / "build/packages"
    packed = {path.name: path for path in [*folder.glob("*_amd64.deb"), *folder.glob("*_all.deb")]}
    if not packed:
        pytest.skip("there are no packages: scripts/package makes them")
    place = tmp_path / "another/place"
    copy_of(source, place)
    subprocess.run(
        ["sh", "-c", f"umask 077; cd {shlex.quote(str(place))} && exec scripts/package amd64"],
        env={**os.environ, **ANOTHER_PERSON},
        capture_output=True,
        check=True,
    )
    again = {path.name: path for path in (place / "build/packages").iterdir()}
    assert again.keys() == packed.keys()
    for name, package in packed.items():
        if package.read_bytes() != again[name].read_bytes():
            pytest.fail(f"{name}: {difference(package, again[name], tmp_path)}")
