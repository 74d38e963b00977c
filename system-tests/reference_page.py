"""The page as it must look, drawn by straight cairo calls, and a comparison that shows pictures.

Nothing here knows the program: texts, sizes and places are written down a second time, so that a
slip in one of the two shows.
"""

import math
from dataclasses import dataclass

import cairo
import numpy

from desk import pictures

WIDTH, HEIGHT = 480, 800
STRIDE = 960
LATIN = "Univers Next W1G Medium"
CHINESE = "Droid Sans Fallback"
PREFIX = "Brem K5 "
DEFAULT_TITLE = "Brem K5 Konfiguration"
FRAMES_A_TURN = 66


@dataclass(frozen=True)
class Style:
    """How one kind of text is set."""

    size: int
    step: int  # pixels a byte, from the prefix to the rest
    shift: int  # of the rest against the prefix, downwards
    always_whole: bool  # the baseline is cut to a whole pixel also without a prefix


TITLE = Style(size=15, step=7, shift=-1, always_whole=True)
LINE = Style(size=21, step=10, shift=-2, always_whole=False)


def runs(text, chinese):
    """[(text, font)]: the one or two pieces in which a text is drawn."""
    if not chinese:
        return [(text, LATIN)]
    if text.startswith(PREFIX):
        return [(PREFIX, LATIN), (text[len(PREFIX) :], CHINESE)]
    return [(text, CHINESE)]


def select(context, font, size):
    """Sets the font; the height that stands for all texts in it."""
    context.select_font_face(font, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_NORMAL)
    context.set_font_size(size)
    return context.text_extents("cairo").height


def draw_text(context, text, top, style, chinese, taller):
    pieces = runs(text, chinese)
    first, font = pieces[0]
    baseline = top + select(context, font, style.size) + taller
    if style.always_whole or len(pieces) == 2:
        baseline = math.trunc(baseline)
    context.move_to(18, baseline)
    context.show_text(first)
    if len(pieces) == 2:
        rest, font = pieces[1]
        select(context, font, style.size)
        context.move_to(18 + style.step * len(first.encode()), baseline + style.shift)
        context.show_text(rest)


def draw_page(context, title, lines, frame, chinese, taller):
    context.set_source_rgb(1, 1, 1)
    context.paint()
    context.set_source_rgb(0.1, 0.1, 0.1)
    draw_text(context, title, 127, TITLE, chinese, taller)
    for number, line in enumerate(lines):
        draw_text(context, line, 163 + 27 * number, LINE, chinese, taller)
    context.set_source_rgb(0, 0, 0)
    context.set_line_width(0.5)
    context.move_to(18.5, 150.5)
    context.line_to(462.5, 150.5)
    context.stroke()
    angle = 2 * (frame % FRAMES_A_TURN) * math.pi / FRAMES_A_TURN
    for shade, start, end in ((0.21, angle, angle + math.pi), (0.76, angle + math.pi, angle)):
        context.set_line_width(6)
        context.set_source_rgba(0, 0, 0, shade)
        context.arc(240, 364, 66, start, end)
        context.stroke()


def page(title=DEFAULT_TITLE, lines=(), frame=0, chinese=False, taller=0):
    """The bytes of the frame buffer: rows of RGB565. `taller`: see the cairo recorder."""
    memory = bytearray(STRIDE * HEIGHT)
    surface = cairo.ImageSurface.create_for_data(memory, cairo.Format.RGB16_565, WIDTH, HEIGHT, STRIDE)
    draw_page(cairo.Context(surface), title, lines, frame, chinese, taller)
    surface.finish()
    return bytes(memory)


def rounded_otherwise(expected, actual):
    """How many pixels differ by one step of one colour; None where any differs by more."""

    def colours(pixels):
        words = pictures.values(pixels).astype(int)
        return numpy.stack([words >> 11, words >> 5 & 63, words & 31])

    steps = abs(colours(expected) - colours(actual)).sum(axis=0)
    return None if steps.max() > 1 else int(steps.sum())


def assert_same(expected, actual, folder, name, rounding=0):
    """Fails where a pixel differs, and leaves the pictures in `folder`. `rounding`: how many pixels
    may differ by one step of one colour, where another processor drew the page."""
    if expected == actual:
        return
    assert len(expected) == len(actual), f"{name}: {len(actual)} bytes instead of {len(expected)}"
    steps = rounded_otherwise(expected, actual)
    if steps is not None and steps <= rounding:
        return
    pictures.save_difference(folder, name, expected, actual)
    count, _ = pictures.different_pixels(expected, actual)
    raise AssertionError(
        f"{name}: {count} pixels differ; see {folder}/{name}-expected.png, " "-actual.png and -difference.png"
    )
