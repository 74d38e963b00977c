"""The desk itself: what it refuses, and how it waits."""

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


def looks(monkeypatch, needed, *seconds_between):
    """Waits for what is there at a certain look, with processors that have so much time between two; which look
    it was."""
    times = ([look * seconds for seconds in seconds_between] for look in itertools.count())
    monkeypatch.setattr("desk.waiting.processors_time", lambda: next(times))
    count = itertools.count(1)
    return wait_until(lambda: (look := next(count)) == needed and look, "it", deadline=20)


def test_time_that_one_processor_did_not_have_lets_no_deadline_pass(monkeypatch):
    assert looks(monkeypatch, 90, 0.5, 0.2) == 90


def test_a_deadline_passes_where_all_processors_work(monkeypatch):
    with pytest.raises(Late):
        looks(monkeypatch, 90, 0.5, 0.25)


def test_a_deadline_passes_on_this_machine():
    with pytest.raises(Late):
        wait_until(lambda: False, "nothing", deadline=0.1)
