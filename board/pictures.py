"""Pictures of the screen: RGB565, 480 x 800, written and compared as PNG."""
import struct
import zlib

WIDTH, HEIGHT = 480, 800
SIZE = WIDTH * HEIGHT * 2


def _chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def _colour(value):
    red, green, blue = value >> 11, (value >> 5) & 63, value & 31
    return bytes((red * 255 // 31, green * 255 // 63, blue * 255 // 31))


_COLOURS = [_colour(value) for value in range(65536)]


def png(pixels):
    """A PNG of the picture's bytes, as the driver holds them."""
    if len(pixels) != SIZE:
        raise ValueError(f"a picture has {SIZE} bytes, not {len(pixels)}")
    values = struct.unpack(f"<{WIDTH * HEIGHT}H", pixels)
    rows = (b"\0" + b"".join(_COLOURS[value] for value in values[start:start + WIDTH])
            for start in range(0, WIDTH * HEIGHT, WIDTH))
    head = struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + _chunk(b"IHDR", head)
            + _chunk(b"IDAT", zlib.compress(b"".join(rows), 6)) + _chunk(b"IEND", b""))


def split(data):
    """The pictures of a read-back, one after the other."""
    if not data or len(data) % SIZE:
        raise ValueError(f"{len(data)} bytes are no whole number of pictures")
    return [data[start:start + SIZE] for start in range(0, len(data), SIZE)]


def different_pixels(one, other):
    """How many pixels differ, and the first that does as (x, y)."""
    first, count = None, 0
    for index in range(0, SIZE, 2):
        if one[index:index + 2] != other[index:index + 2]:
            count += 1
            first = first or (index // 2 % WIDTH, index // 2 // WIDTH)
    return count, first


def difference(one, other):
    """A picture that is red where the two differ, else the second one, paler."""
    result = bytearray(SIZE)
    for index in range(0, SIZE, 2):
        value, = struct.unpack_from("<H", other, index)
        pale = ((value >> 1) & 0x7BEF) + 0x7BEF
        differs = one[index:index + 2] != other[index:index + 2]
        struct.pack_into("<H", result, index, 0xF800 if differs else pale)
    return bytes(result)
