"""Every system call of the program fails once: a line and status 255, or the splash goes on; never a
hang, never a crash, never a lost reboot."""

import os
import re
import subprocess

import pytest

from desk import sanitizer_runtimes
from faults import ERRORS, NOT_MADE, OTHERS, RARE, Bench, outcomes

LONG = bool(os.environ.get("BOOTLUME_LONG"))


@pytest.fixture(scope="module")
def bench(products):
    if sanitizer_runtimes(products["bootlume"]):
        pytest.skip("calls are told apart by their caller, which a sanitizer hides")
    return Bench(products)


@pytest.mark.parametrize("function", [name for name in ERRORS if name not in RARE])
def test_every_failing_call_has_an_outcome_that_is_allowed(bench, run_prefix, function):
    results = outcomes(bench, function, most_calls=8 if LONG else 2, all_errors=LONG)
    struck = [outcome for outcome in results if outcome.word != NOT_MADE]
    broken = [f"{outcome.case}: {outcome.problem}; {outcome.lines}" for outcome in struck if outcome.problem]
    assert not broken
    made = any(counts[function] for counts in bench.counts.values())
    assert struck or not made, "the program makes this call, and none of them failed"
    assert made or run_prefix, "no phase comes to this call"
    print(f"{function}: {len(struck)} faults survived")


def test_what_is_named_as_rare_is_so(bench, self_contained):
    if self_contained:
        pytest.skip("the libraries that are linked in make such calls, too")
    assert not [name for name in RARE if any(counts[name] for counts in bench.counts.values())]


def test_no_call_of_the_program_is_left_out(build_dir, run_prefix, self_contained):
    program = build_dir / "bin/bootlume"
    counted = b".gcda" in program.read_bytes()
    if run_prefix or self_contained or counted or sanitizer_runtimes(program):
        pytest.skip("other calls have their names, and more of them, in another kind of build")
    symbols = subprocess.run(
        ["readelf", "--wide", "--dyn-syms", program], capture_output=True, text=True, check=True
    ).stdout
    imported = set(re.findall(r" FUNC .* UND (\S+)@GLIBC_", symbols))
    assert len(imported) > 50
    assert not imported - set(ERRORS) - set(OTHERS)
