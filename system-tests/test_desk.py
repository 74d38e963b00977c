"""The desk itself, where it must refuse something."""

import pytest

from desk import Desk


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
