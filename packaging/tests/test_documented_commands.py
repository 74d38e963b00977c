"""Every command of every manual and of every Markdown file, run.

In Markdown, commands stand in fenced blocks marked `sh`; in the manuals' sources, on lines of fenced
blocks that begin with "$ ". A block is run as a whole, by a shell that ends at the first failure, as
root in a clean root with the packages installed, in front of a splash on the virtual device. Blocks
for a checkout (they name scripts/ or build/) are run in this one.
"""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from desk import SOURCE
from test_installation import INSTALL, START, WAIT_FOR_FRAMES, CleanRoot

HERE = Path(__file__).resolve().parent
STAGES = SOURCE / "scripts/lib/stages.sh"

# Commands that this test cannot run itself, and who runs them.
RUN_ELSEWHERE = {
    "scripts/test": "it runs tests as this one; continuous integration runs it",
    "scripts/package": "it removes what the other tests look at meanwhile; it ran before them",
}
# A root that was not booted has no service manager to ask. Only that reason is let pass, and only
# after the real program has taken the command line.
MANAGER = r"""
ask() {
  local said status=0
  said=$(command "$@" 2>&1) || status=$?
  printf '%s\n' "$said"
  [ "$status" -eq 0 ] && return
  case $said in
    *'not been booted with systemd'* | *'No journal files were found'*) return 0 ;;
  esac
  return "$status"
}
systemctl() { ask systemctl "$@"; }
journalctl() { ask journalctl "$@"; }
export -f ask systemctl journalctl
"""
# The splash's own settings are those of the root, where commands change them.
DESK = "mkdir -p /desk /opt; ln -sfn /opt /desk/opt"
FENCE = re.compile(r"^(\s*)```(\S*)\s*$")


def fenced_blocks(path):
    """(line, mark, lines) of every fenced block."""
    blocks, inside = [], None
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        fence = FENCE.match(line)
        if fence and inside is None:
            inside = (number, fence[2], [])
        elif fence:
            blocks.append(inside)
            inside = None
        elif inside is not None:
            inside[2].append(line)
    assert inside is None, f"{path}: a fence is not closed"
    return blocks


def tracked(pattern):
    listed = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard", "--", pattern],
        cwd=SOURCE,
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    return [SOURCE / name for name in listed.splitlines()]


def command_blocks():
    """(name, script) of every block of commands."""
    found = []
    for path in tracked("*.md"):
        for number, mark, lines in fenced_blocks(path):
            if mark == "sh":
                found.append((f"{path.relative_to(SOURCE)}:{number}", "\n".join(lines)))
    for path in tracked("packaging/man/*.scd"):
        for number, _, lines in fenced_blocks(path):
            # As a reader sees it: in that language a backslash takes the next character as it is.
            commands = [re.sub(r"\\(.)", r"\1", line[2:]) for line in lines if line.startswith("$ ")]
            if commands:
                assert len(commands) == len(lines), f"{path}:{number} mixes commands and other text"
                found.append((f"{path.relative_to(SOURCE)}:{number}", "\n".join(commands)))
    return found


BLOCKS = command_blocks()
CHECKOUT = re.compile(r"\b(scripts|build|packaging)/")
IN_ROOT = [block for block in BLOCKS if not CHECKOUT.search(block[1])]
IN_CHECKOUT = [block for block in BLOCKS if CHECKOUT.search(block[1])]


def install(source, folder):
    """A clean root with both packages; what is run in it stays in it."""
    if os.geteuid() != 0:
        pytest.skip("only root may enter a root")
    packages = sorted((source / "build/packages").glob("*_amd64.deb"))
    if not packages:
        pytest.skip("there are no packages: scripts/package makes them")
    root = CleanRoot("amd64", packages, folder)
    done = root.run(INSTALL)
    assert done.returncode == 0, done.stderr
    return root


@pytest.fixture(scope="session")
def installed_root(source, tmp_path_factory):
    return install(source, tmp_path_factory.mktemp("installed"))


def uses_what_is_not_packed(script, root):
    return "bootlume-preview" in script and not (root.changes / "usr/bin/bootlume-preview").exists()


@pytest.mark.parametrize("name, script", IN_ROOT, ids=[name for name, _ in IN_ROOT])
def test_block_runs_on_a_device(installed_root, name, script):
    if uses_what_is_not_packed(script, installed_root):
        pytest.skip("this build has no bootlume-preview")
    # A splash of its own is started by a block that says so; for the rest there is one.
    own = re.search(r"^(\S+=\S+ )*bootlume ", script, re.MULTILINE)
    preload = START.replace("unset LD_PRELOAD", "")
    if own:
        preload = "\n".join(line for line in preload.splitlines() if not line.startswith("bootlume "))
    run = (
        f"{DESK}\nmkdir -p /opt/userdata\ncp /usr/share/doc/bootlume/examples/trace_config /opt/userdata/\n"
        f"{MANAGER}{preload}\n"
        f"{'' if own else WAIT_FOR_FRAMES}\n"
        f"cat > /answers/block.sh <<'END-OF-BLOCK'\n{script}\nEND-OF-BLOCK\n"
        "bash -eu /answers/block.sh >/answers/out 2>&1 || { cat /answers/out; exit 9; }\n"
        "bootlumectl --root '' quit --timeout 20 >/dev/null 2>&1 || true\n"
    )
    done = installed_root.run(run)
    assert done.returncode == 0, f"{name}\n{script}\n{done.stdout}\n{done.stderr}"


def test_the_field_guide_works_to_the_letter_on_an_image_that_has_little(source, tmp_path):
    """Without manuals and examples, without the folder for settings, and one step after the other."""
    steps = [script for name, script in BLOCKS if name.startswith("docs/field-debugging.md:")]
    assert len(steps) > 8
    # The steps run without the preload, which would make the folder.
    run = (
        f"rm -rf /usr/share/doc /usr/share/man\n{DESK}\n{MANAGER}{START}\n{WAIT_FOR_FRAMES}\n"
        "rm -rf /opt/*\nln -s /desk/tmp/.bootlume /tmp/.bootlume\n"
    )
    for number, script in enumerate(steps):
        run += (
            f"cat > /answers/{number}.sh <<'END-OF-STEP'\n{script}\nEND-OF-STEP\n"
            f"bash -eu /answers/{number}.sh >/answers/{number} 2>&1 || {{ cat /answers/{number}*; exit 9; }}\n"
        )
    done = install(source, tmp_path).run(run)
    assert done.returncode == 0, f"{done.stdout}\n{done.stderr}"


def test_the_field_guide_is_a_manual_with_the_same_commands(installed_root):
    """On the device; where its compiler was installed."""
    pages = list((installed_root.changes / "usr/share/man/man7").glob("bootlume-troubleshooting.7.gz"))
    if not shutil.which("lowdown"):
        pytest.skip("lowdown is not installed")
    shown = subprocess.run(
        ["man", "--local-file", "--pager=cat", *pages],
        capture_output=True,
        text=True,
        check=True,
        env={**os.environ, "MANWIDTH": "120", "LC_ALL": "C.UTF-8"},
    ).stdout
    assert "bootlume-troubleshooting - from a white screen to its cause" in shown
    seen = {line.strip() for line in shown.splitlines()}
    for name, script in BLOCKS:
        if name.startswith("docs/field-debugging.md:"):
            assert {line.strip() for line in script.splitlines()} <= seen


@pytest.mark.parametrize("name, script", IN_CHECKOUT, ids=[name for name, _ in IN_CHECKOUT])
def test_block_runs_in_a_checkout(build_dir, name, script):
    commands = [line for line in script.splitlines() if line.strip()]
    rest = [line for line in commands if line.split(" #")[0].strip() not in RUN_ELSEWHERE]
    if not rest:
        pytest.skip("; ".join(sorted({RUN_ELSEWHERE[line.split(" #")[0].strip()] for line in commands})))
    if "scripts/run" in script and not (build_dir / "bin/bootlume-preview").exists():
        pytest.skip("this build has no bootlume-preview")
    done = subprocess.run(
        ["bash", "-eu", HERE / "until_shown.sh", "\n".join(rest)],
        cwd=SOURCE,
        capture_output=True,
        text=True,
        check=False,
        timeout=600,
    )
    assert done.returncode == 0, f"{name}\n{script}\n{done.stdout}\n{done.stderr}"


def test_every_block_of_commands_is_marked():
    """A block without a mark would be run by nobody."""
    programs = re.compile(r"^(# |\$ )?(sudo )?(\w+=\S+ )*(scripts/|build/|bootlume|systemctl|journalctl|apt)")
    for path in tracked("*.md"):
        for number, mark, lines in fenced_blocks(path):
            assert mark == "sh" or not programs.match(
                "\n".join(lines)
            ), f"{path.relative_to(SOURCE)}:{number} looks like commands and is not marked sh"


@pytest.mark.parametrize("path", tracked("packaging/man/*.scd"), ids=lambda path: path.stem)
def test_a_manual_s_command_is_run_as_a_reader_sees_it(path):
    shown = subprocess.run(
        "scdoc | man --local-file --pager=cat -",
        shell=True,
        check=True,
        text=True,
        input=path.read_text(encoding="utf-8"),
        capture_output=True,
        env={**os.environ, "MANWIDTH": "400", "LC_ALL": "C.UTF-8"},
    ).stdout
    seen = {line.strip() for line in shown.splitlines()}
    for name, script in BLOCKS:
        if name.startswith(str(path.relative_to(SOURCE))):
            for command in script.splitlines():
                assert f"$ {command}" in seen


def test_commands_that_run_elsewhere_do_so():
    assert set(RUN_ELSEWHERE) == {"scripts/test", "scripts/package"}
    commands = [line for line in (SOURCE / ".ci/run").read_text().splitlines() if not line.startswith("#")]
    assert any(re.search(r"\bscripts/test\b.*\b(basic|--all|--long)\b", line) for line in commands)
    (packages,) = re.findall(r"^package_tests\(\) \{(.*?)^\}", STAGES.read_text(), re.MULTILINE | re.DOTALL)
    made, tested = packages.index("scripts/package "), packages.index("python_tests packaging/tests")
    assert made < tested


def test_every_exclusion_is_of_a_command_that_there_is():
    written = {line.split(" #")[0].strip() for _, script in BLOCKS for line in script.splitlines()}
    assert set(RUN_ELSEWHERE) <= written


# What stands in a sentence, not in a block, is there to be looked up: the program, its commands and its
# options are those of its own help. These are somebody else's, or are words for a place.
NOT_OURS = re.compile(r"(cmake|systemctl|udevadm|fc-|scdoc|LD_PRELOAD|bootlume/|bootlume\(|[a-z-]+\(\d\))")
PROGRAMS = {"bootlumectl": "bin/bootlumectl", "bootlume-preview": "bin/bootlume-preview"}


def commands_in_sentences():
    """(name, words) of every code span that begins with one of our programs, or with man."""
    found = []
    for path in tracked("*.md"):
        inside = False
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            inside ^= bool(FENCE.match(line))
            for span in [] if inside else re.findall(r"`([^`]+)`", line):
                words = span.split()
                ours = words[0] in (*PROGRAMS, "man") or words[0].startswith("scripts/")
                if ours and not NOT_OURS.match(span) and len(words) + (words[0] != "man") > 1:
                    found.append((f"{path.relative_to(SOURCE)}:{number} {span}", words))
    for path in tracked("packaging/man/*.scd"):
        for span in re.findall(r"\*((?:bootlumectl|bootlume-preview) [^*\n]+)\*", path.read_text(encoding="utf-8")):
            found.append((f"{path.name} {span}", span.split()))
    return found


@pytest.mark.parametrize("words", [pytest.param(words, id=name) for name, words in commands_in_sentences()])
def test_a_command_in_a_sentence_is_one_that_there_is(build_dir, words):
    if words[0] == "man":
        section, page = words[1:] if len(words) > 2 else ("[0-9]", words[1])
        assert page == "bootlume-troubleshooting" or list(SOURCE.glob(f"packaging/man/{page}.{section}.scd"))
        return
    program = SOURCE / words[0] if "/" in words[0] else build_dir / PROGRAMS[words[0]]
    if words[0].startswith("scripts/lib/"):  # sourced, not run
        assert program.exists()
        return
    assert os.access(program, os.X_OK)
    commands = [word for word in words[1:2] if words[0] == "bootlumectl" and word.isalpha()]
    told = "".join(
        subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True, cwd=SOURCE).stdout
        for command in ([], commands)
    )
    for word in words[1:]:
        if word.startswith("--") or word in commands or (word.islower() and "/" in words[0]):
            assert re.search(rf"(?<![\w-]){word}(?![\w-])", told), f"{word}: {told}"
