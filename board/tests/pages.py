"""Compares what the screen showed with the pages of one turn of the ring."""
from desk import pictures


def nearest(shown, turn):
    """The page with the fewest differing pixels, and what differs."""
    return min(((page, *pictures.different_pixels(shown, page)) for page in turn), key=lambda found: found[1])


def steps(screens, turn, before=(pictures.WHITE,), folder=None):
    """The ring's step on each screen. Screens that still show a page of `before` may come first;
    from then on every pixel of every screen must be a page of the turn."""
    known = {page: step for step, page in enumerate(turn)}
    start = 0
    while start < len(screens) and screens[start] in before:
        start += 1
    found = [known.get(screen) for screen in screens[start:]]
    assert found, "the screen never showed the page"
    if None in found:
        screen = screens[start + found.index(None)]
        page, count, first = nearest(screen, turn)
        pictures.save_difference(folder, "screen", page, screen)
        raise AssertionError(
            f"a screen differs from the nearest page in {count} pixels, first at"
            f" {first}; the pictures lie in {folder}"
        )
    return found
