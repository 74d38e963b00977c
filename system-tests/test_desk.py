"""The desk itself: what it refuses, and how it waits."""

import functools
import itertools

import pytest

from desk import Desk, Late, wait_until


@pytest.mark.parametrize("folder", ["with a blank", "with:a colon"])
def test_a_library_that_the_loader_cannot_preload_is_refused_by_name(products, tmp_path, folder):
    library = tmp_path / folder / "libvirtual-device.so"
    with Desk(**{**products, "library": library}) as desk:
        with pytest.raises(ValueError, match=folder):
            desk.start()


def test_a_root_with_a_blank_and_a_colon_serves_as_any_other(products, tmp_path):
    root = tmp_path / "a blank, a :"
    root.mkdir()
    with Desk(**products, root=root) as desk:
        splash = desk.start()
        splash.screen.wait_for_frame(3)
        assert splash.quit() == 0


def looks(monkeypatch, seconds_between, needed, taken=0):
    """Waits for what is there at a certain look, on a clock that goes on so much between two, of which the host
    takes so much; which look it was."""
    for name, step in (("time.monotonic", seconds_between), ("taken_by_host", taken)):
        monkeypatch.setattr(f"desk.waiting.{name}", functools.partial(next, itertools.count(0, step)))
    count = itertools.count(1)
    return wait_until(lambda: (look := next(count)) == needed and look, "it", deadline=20)


def test_a_machine_that_stands_still_lets_no_deadline_pass(monkeypatch):
    assert looks(monkeypatch, 60, needed=20) == 20


def test_what_the_host_takes_does_not_count(monkeypatch):
    assert looks(monkeypatch, 0.5, needed=90, taken=0.375) == 90


def test_a_deadline_passes_where_the_machine_runs(monkeypatch):
    with pytest.raises(Late):
        looks(monkeypatch, 0.5, needed=50)
