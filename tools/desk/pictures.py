"""Pictures of the screen: rows of little-endian RGB565, 480 x 800, compared and shown."""

import io

import numpy
from PIL import Image

from .screen import HEIGHT, WIDTH

SIZE = WIDTH * HEIGHT * 2
WHITE = b"\xff" * SIZE


def values(pixels):
    """The bytes of a picture as an array of rows of 16-bit values."""
    return numpy.frombuffer(pixels, "<u2").reshape(HEIGHT, WIDTH)


def rgb(rows):
    """16-bit values as rows of (red, green, blue), the brightest of each being 255."""
    wide = rows.astype(numpy.uint32)
    red, green, blue = wide >> 11, (wide >> 5) & 0x3F, wide & 0x1F
    return numpy.stack([red << 3 | red >> 2, green << 2 | green >> 4, blue << 3 | blue >> 2], axis=-1).astype(
        numpy.uint8
    )


def image(pixels):
    """The bytes of a picture as an image to be saved."""
    return Image.fromarray(rgb(values(pixels)), "RGB")


def png(pixels):
    """The bytes of a picture as those of a PNG file."""
    file = io.BytesIO()
    image(pixels).save(file, "PNG")
    return file.getvalue()


def different_pixels(expected, actual):
    """How many pixels differ, and the first that does as (x, y)."""
    rows, columns = numpy.nonzero(values(expected) != values(actual))
    return len(rows), (int(columns[0]), int(rows[0])) if len(rows) else None


def difference(expected, actual):
    """An image of the expected page, pale, with the pixels that differ in red."""
    pale = 170 + rgb(values(expected)) // 3
    pale[values(expected) != values(actual)] = (255, 0, 0)
    return Image.fromarray(pale, "RGB")


def save_difference(folder, name, expected, actual):
    """Leaves three images in the folder: what was expected, what was found, and what differs."""
    folder.mkdir(parents=True, exist_ok=True)
    for kind, shown in (
        ("expected", image(expected)),
        ("actual", image(actual)),
        ("difference", difference(expected, actual)),
    ):
        shown.save(folder / f"{name}-{kind}.png")


def split(data):
    """The pictures that lie one after the other in `data`."""
    if not data or len(data) % SIZE:
        raise ValueError(f"{len(data)} bytes are no whole number of pictures")
    return [data[start : start + SIZE] for start in range(0, len(data), SIZE)]
