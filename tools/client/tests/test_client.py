"""The header for C and C++ and the Python module: alike, and never waiting."""

import itertools
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from ctl_desk import SECONDS, full, stopped
from desk import SOCKET, SOURCE, wait_until, wait_until_running

CLIENT = SOURCE / "tools/client"
HERE = Path(__file__).resolve().parent
WARNINGS = ("-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wundef " "-Werror").split()


@pytest.fixture(scope="session")
def program(tmp_path_factory):
    built = tmp_path_factory.mktemp("client") / "said_results"
    subprocess.run(
        ["gcc", "-std=c99", *WARNINGS, "-O2", "-I", CLIENT, "-o", built, HERE / "said_results.c"], check=True
    )
    return built


@pytest.fixture
def call(desk, program):
    """Runs the program with the desk's socket; its sentence."""
    environment = {**os.environ, "BOOTLUME_SOCKET": str(desk.path(SOCKET))}

    def run(*words, **options):
        return subprocess.run(
            [program, *words], env=environment, capture_output=True, text=True, timeout=SECONDS, check=False, **options
        ).stdout.strip()

    return run


@pytest.fixture
def bootlume(desk, monkeypatch):
    """The Python module, for the desk's socket."""
    monkeypatch.setenv("BOOTLUME_SOCKET", str(desk.path(SOCKET)))
    monkeypatch.syspath_prepend(str(CLIENT))
    import bootlume as module

    yield module
    del sys.modules["bootlume"]


@pytest.mark.parametrize(
    "compiler,language",
    [
        (["gcc", "-std=c99"], "c"),
        (["gcc", "-std=c17", "-Wc++-compat"], "c"),
        (["clang-14", "-std=c99"], "c"),
        (["g++", "-std=c++98", "-Wold-style-cast"], "c++"),
        (["g++", "-std=c++17", "-Wold-style-cast", "-Wuseless-cast"], "c++"),
        (["clang++-14", "-std=c++20", "-Wold-style-cast"], "c++"),
        (["arm-linux-gnueabihf-gcc", "-std=c99"], "c"),
    ],
    ids=lambda value: " ".join(value) if isinstance(value, list) else value,
)
def test_the_header_stands_alone_and_gives_no_warning(compiler, language, tmp_path):
    if not shutil.which(compiler[0]):
        pytest.skip(f"{compiler[0]} is not installed")
    source = "#include <bootlume-client.h>\nint user(void);\nint user(void) { return bootlume_quit() == 0; }\n"
    done = subprocess.run(
        [*compiler, *WARNINGS, "-O2", "-I", CLIENT, "-x", language, "-c", "-o", tmp_path / "object", "-"],
        input=source,
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stderr


def test_a_text_and_an_end_arrive(desk, call, bootlume):
    desk.trace_config("bootlume 5 0 0")
    splash = wait_until_running(desk.start())
    assert call("text", "Grüße", "one\ntwo") == "sent"
    splash.wait_for_trace("Got Message from socket, command = Grüße;one\ntwo")
    bootlume.send_text("起動", "three\\nfour")
    splash.wait_for_trace("Got Message from socket, command = 起動;three\\nfour")
    assert call("quit") == "sent"
    assert splash.wait() == 0
    splash = wait_until_running(desk.start())
    bootlume.quit()
    assert splash.wait() == 0


def test_a_missing_splash_is_told(desk, call, bootlume):
    for _ in range(2):
        assert call("text", "A", "B") == call("quit") == "no splash answers"
        for command in (lambda: bootlume.send_text("A", "B"), bootlume.quit):
            with pytest.raises(bootlume.NoSplash):
                command()
        splash = wait_until_running(desk.start())  # the second time, its file is still there
        assert splash.quit() == 0


def test_a_stopped_splash_is_sent_to_until_its_queue_is_full_and_holds_nobody_up(desk, call, bootlume):
    with stopped(wait_until_running(desk.start())) as splash:
        assert call("text", "A", "B") == "sent"
        wait_until(lambda: call("text", "A", "B") != "sent", "its queue to be full")
        assert call("text", "A", "B") == call("quit") == "the splash does not read its socket"
        with pytest.raises(bootlume.Busy):
            bootlume.quit()
    assert splash.quit() == 0


def test_a_full_queue_holds_nobody_up(desk, call, bootlume):
    with full(desk):
        assert call("text", "A", "B") == "the splash does not read its socket"
        with pytest.raises(bootlume.Busy):
            bootlume.send_text("A", "B")


def test_a_program_that_may_not_send_is_told(desk, call, program):
    if os.getuid() != 0:
        pytest.skip("needs root, to be another user")
    desk.root.chmod(0o755)
    open_program = shutil.copy(program, desk.root)
    wait_until_running(desk.start())
    desk.path(SOCKET).chmod(0o600)
    done = subprocess.run(
        [open_program, "quit"],
        user="nobody",
        cwd="/",
        capture_output=True,
        text=True,
        env={"BOOTLUME_SOCKET": str(desk.path(SOCKET))},
        check=False,
    )
    assert done.stdout == "this user may not send to the splash\n"


def test_nothing_is_allocated_and_nothing_waits(desk, program, tmp_path):
    """Of the calls between the program's start and its output, only these concern the splash."""
    trace = tmp_path / "calls"
    with full(desk):
        subprocess.run(
            ["strace", "-qq", "-o", trace, program, "text", "A", "B"],
            check=False,
            env={**os.environ, "BOOTLUME_SOCKET": str(desk.path(SOCKET))},
            capture_output=True,
        )
    calls = [line.split("(")[0] for line in trace.read_text().splitlines()]
    begin = calls.index("socket")
    assert calls[begin : begin + 4] == ["socket", "connect", "sendmsg", "close"]
    assert "MSG_DONTWAIT" in trace.read_text()
    symbols = subprocess.run(["nm", "--undefined-only", program], capture_output=True, text=True, check=True).stdout
    assert not {"malloc", "calloc", "realloc", "strdup"} & set(symbols.split())


PIECES = [
    "",
    "A",
    "Größe",
    ";",
    "\n",
    "\\n",
    "\t",
    "\x7f",
    "one\\n",
    "one\\ntwo\\n",
    "\\",
    "n",
    "起動",
    "🙂",
    "\u0080",
    "\ud800",
]
BROKEN = [
    b"\xc3",
    b"\xc3\x28",
    b"\xc0\xaf",
    b"\xe0\x80\x80",
    b"\xed\xa0\x80",
    b"\xf0\x80\x80\x80",
    b"\xf4\x90\x80\x80",
    b"\xf5\x80\x80\x80",
    b"\x80",
    b"\xe2\x82",
]


def verdict(bootlume, title, lines):
    try:
        bootlume.check_text(title, lines)
        f"{title}{lines}".encode()
        return "sent"
    except UnicodeEncodeError:
        return "the text is not UTF-8"
    except ValueError as error:
        return str(error)


def test_the_header_the_module_and_the_client_refuse_alike(desk, call, ctl, bootlume):
    wait_until_running(desk.start())
    texts = list(itertools.product(PIECES, PIECES))
    for title, lines in texts:
        raw = [text.encode(errors="surrogatepass") for text in (title, lines)]
        said = call("check", *raw)
        # A surrogate next to another fault may be told by either.
        if "\ud800" not in title + lines:
            assert said == verdict(bootlume, title, lines), (title, lines)
        else:
            assert said != "sent" != verdict(bootlume, title, lines), (title, lines)
    for title, lines in texts[::7]:
        raw = [text.encode(errors="surrogatepass") for text in (title, lines)]
        done = ctl("text", "--", *raw)
        said = call("check", *raw)
        assert (done.returncode, done.stderr) == (
            (0, "") if said == "sent" else (2, f"bootlumectl: not sent: {said}\n")
        ), (title, lines)


@pytest.mark.parametrize("broken", BROKEN)
def test_what_is_not_utf_8_is_refused_wherever_it_stands(call, broken):
    assert call("check", b"a" + broken, b"b") == "the text is not UTF-8"
    assert call("check", b"a", broken + b"b") == "the text is not UTF-8"


def test_every_character_is_well_formed_where_python_says_so(tmp_path):
    """All code points, and all pairs of a first and a second byte."""
    source = tmp_path / "check.c"
    source.write_text(
        "#include <bootlume-client.h>\n#include <stdio.h>\nint main(void) {\n"
        "    char line[16];\n    while (fgets(line, sizeof line, stdin) != NULL) {\n"
        "        line[strlen(line) - 1] = 0;\n"
        "        putchar(bootlume_is_utf8(line) ? 'y' : 'n');\n    }\n    return 0;\n}\n"
    )
    subprocess.run(["gcc", "-std=c99", "-O2", "-I", CLIENT, "-o", tmp_path / "check", source], check=True)
    texts = [chr(code).encode(errors="surrogatepass") for code in range(1, 0x110000) if code != 10]
    texts += [
        bytes((lead, second)) + b"\x80" * more
        for lead in range(0x80, 0x100)
        for second in range(1, 0x100)
        if second != 10
        for more in range(3)
    ]

    def is_utf8(text):
        try:
            text.decode()
            return True
        except UnicodeDecodeError:
            return False

    done = subprocess.run([tmp_path / "check"], input=b"\n".join(texts) + b"\n", capture_output=True, check=True)
    assert done.stdout.decode() == "".join("y" if is_utf8(text) else "n" for text in texts)
