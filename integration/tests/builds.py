"""Builds of the tree as an integrator makes them, and what they install."""

import os
import re
import subprocess

from desk import SOURCE

WORK = SOURCE / "build/integration"
SETTINGS = ("etc/default/bootlume", "etc/init.d/bootlume")


def run(words, environment=None):
    """Runs a program that must end well; gives all that it said."""
    done = subprocess.run(
        words,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
        env={**os.environ, **(environment or {})},
    )
    assert done.returncode == 0, done.stdout[-5000:]
    return done.stdout


def configure(folder, *options, environment=None):
    """The generator is the one that every machine has."""
    return run(["cmake", "-G", "Unix Makefiles", "-S", SOURCE, "-B", folder, *options], environment)


def build(folder, *options, environment=None):
    """Configures and builds the tree in a folder of its own; gives all that was said."""
    said = configure(folder, *options, environment=environment)
    return said + run(["cmake", "--build", folder, "-j", str(os.cpu_count())], environment)


def install(folder, destination, environment=None):
    """Installs below the destination; gives the names of the files there."""
    run(["cmake", "--install", folder], {**(environment or {}), "DESTDIR": str(destination)})
    return {str(p.relative_to(destination)) for p in destination.rglob("*") if p.is_symlink() or p.is_file()}


def documented(*options):
    """The names that the guide for integrators gives for these options, BOOTLUME_ left out."""
    text = (SOURCE / "docs/integration.md").read_text()
    table = text.partition("## What is installed")[2].partition("\n## ")[0]
    rows = re.findall(r"^\| ([^|]*) \| (`[^|]*`) \|$", table, re.MULTILINE)
    assert rows
    names = set()
    for condition, files in rows:
        if set(re.findall(r"BOOTLUME_(\w+)", condition)) <= set(options):
            names |= set(re.findall(r"`([^`]*)`", files))
    return names


def expected(prefix, settings, *options):
    """The files of an installation below this prefix, with the settings in this folder."""
    names = documented(*options)
    return {f"{settings}/{n[4:]}" if n in SETTINGS else f"{prefix}/{n}" for n in names}


def without_manuals(names):
    return {name for name in names if "/man/" not in name}
