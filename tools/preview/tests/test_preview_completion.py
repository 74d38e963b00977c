"""The completion offers what the program takes."""

import re
import subprocess

from desk import SOURCE
from desk.completion import complete
from preview_desk import PREVIEW

COMPLETION = SOURCE / "tools/preview/completion/bootlume-preview"


def test_every_option_of_the_help_is_offered():
    text = subprocess.run([PREVIEW, "--help"], capture_output=True, text=True, check=True).stdout
    options = set(re.findall(r"^  (?:-h,)?(--[a-z-]+)", text, re.MULTILINE))
    assert len(options) > 10
    assert options == complete(COMPLETION, "bootlume-preview", "-")


def test_each_option_with_a_value_completes_that_and_no_option(tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "file").touch()
    text = subprocess.run([PREVIEW, "--help"], capture_output=True, text=True, check=True).stdout
    offered = {
        option: complete(COMPLETION, "bootlume-preview", option, "f", folder=tmp_path)
        for option in re.findall(r"^  (--[a-z-]+) (?:FILE|FOLDER|CATALOGUE|N)\b", text, re.MULTILINE)
    }
    assert len(offered) > 8
    assert offered.pop("--frame") == set()
    assert offered.pop("--root") == {"folder"}
    assert all(words == {"folder", "file"} for words in offered.values())
