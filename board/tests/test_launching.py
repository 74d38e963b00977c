"""The unit tests that launch processes, on a kernel of their own: what user-mode emulation cannot show."""
import re

import pytest


@pytest.mark.once("virt")
@pytest.mark.parametrize("program, fewest", [("launch_test", 150), ("process_test", 30), ("after_fork_test", 5)])
def test_processes_are_launched_on_the_board_as_on_the_host(bench, board, program, fewest):
    built = bench.workshop.build / "tests"
    board.output(f"mkdir -p {built} && cp /usr/lib/board/launch_report {built}/")
    status, output = board.run(f"{program} --gtest_brief=1")
    text = output.decode(errors="replace")
    assert status == 0, text
    assert int(re.search(r"\[  PASSED  \] (\d+) tests", text)[1]) >= fewest
    assert "SKIPPED" not in text
