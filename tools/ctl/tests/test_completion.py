"""The completion offers what the program takes."""

import re
import subprocess

import pytest

from desk import BUILD, SOURCE
from desk.completion import complete

COMPLETION = SOURCE / "tools/ctl/completion/bootlumectl"


@pytest.mark.parametrize(
    "words,offered",
    [
        (["bootlumectl", "q"], {"quit"}),
        (["bootlumectl", "t"], {"text", "trace"}),
        (["bootlumectl", "--root", "/x", "st"], {"status"}),
        (["bootlumectl", "trace", "V"], {"VERBOSE"}),
        (["bootlumectl", "trace", "5", "--mask", "D"], {"DISPATCHER"}),
        (["bootlumectl", "trace", "5", "V"], set()),
        (["bootlumectl", "quit", "--t"], {"--timeout"}),
        (["bootlumectl", "trace", "5", "--for", "3"], {"30s"}),
    ],
)
def test_a_word_that_was_begun_is_completed(words, offered):
    assert complete(COMPLETION, *words) == offered


@pytest.mark.parametrize("command", ["", "quit", "text", "status", "trace", "report"])
def test_every_option_of_the_help_is_offered(command):
    words = [command] if command else []
    text = subprocess.run(
        [BUILD / "bin/bootlumectl", *words, "--help"], capture_output=True, text=True, check=True
    ).stdout
    options = set(re.findall(r"^  (?:-h,)?(--[a-z-]+)", text, re.MULTILINE))
    assert options
    assert options == complete(COMPLETION, "bootlumectl", *words, "-")
