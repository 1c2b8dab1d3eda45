"""testlib.py — what the Python tests of tavok share, with no display needed: recorded
checks, hand-made .dat volumes, the sample volume, the start grey of the tables, and a PNG
decoder independent of the program's own writer. The window harness (gui/guitest.py) and the
command-line test (cli/test_render_cli.py) both build on it. Standard library only.
"""
import os
import struct
import subprocess
import sys
import zlib


failures = []


def check(condition, what):
    """Records a failed check; the script ends with finish(), which sets the exit status."""
    print(("ok   " if condition else "FAIL ") + what, flush=True)
    if not condition:
        failures.append(what)
    return condition


def finish():
    if failures:
        print("%d check(s) failed" % len(failures))
        sys.exit(1)
    print("all checks passed")
    sys.exit(0)


def skip(reason):
    print("skipped: " + reason)
    sys.exit(0)


def shared_data(name):
    """Path of a file of the shared real data, or None when the folder is not there."""
    here = os.path.dirname(os.path.abspath(__file__))
    path = os.path.normpath(os.path.join(here, "..", "..", "shared", "data", name))
    return path if os.path.exists(path) else None


def phantom(opts):
    """The bundled sample volume, made by make-phantom in the build folder on first use."""
    path = os.path.join(opts.build, "phantom.dat")
    if not os.path.exists(path):
        tool = os.path.join(opts.build, "make-phantom")
        subprocess.run([tool, path], check=True, stdout=subprocess.DEVNULL)
    return path


def start_grey(density):
    """The grey of the tables a load starts with: trunc(density / 4095 * 255)."""
    return int(density * 0.00024420026 * 255.0)


def write_dat(path, sizes, value):
    """Writes a .dat volume of the given sizes; value(x, y, z) gives each sample."""
    X, Y, Z = sizes
    data = bytearray(struct.pack("<3H", X, Y, Z))
    for z in range(Z):
        for y in range(Y):
            for x in range(X):
                data += struct.pack("<H", value(x, y, z))
    with open(path, "wb") as f:
        f.write(data)
    return path


class Image:
    """A screenshot: width, height and rows of 0xRRGGBB pixels."""

    def __init__(self, width, height, pixels):
        self.width, self.height, self.pixels = width, height, pixels

    def at(self, x, y):
        return self.pixels[y * self.width + x]

    def crop(self, x, y, w, h):
        rows = [self.pixels[(y + j) * self.width + x:(y + j) * self.width + x + w] for j in range(h)]
        return Image(w, h, [p for row in rows for p in row])

    def count(self, predicate):
        return sum(1 for p in self.pixels if predicate(p))

    def differs(self, other):
        return self.width != other.width or self.height != other.height or self.pixels != other.pixels


def read_png(path, filters=(0, 1, 2, 3, 4)):
    """Decodes an 8-bit RGB or RGBA PNG (any filter, no interlace) to an Image and alpha list."""
    data = open(path, "rb").read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise RuntimeError("not a PNG")
    pos, idat, width = 8, b"", 0
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        crc = struct.unpack(">I", data[pos + 8 + length:pos + 12 + length])[0]
        if zlib.crc32(kind + body) & 0xffffffff != crc:
            raise RuntimeError("bad CRC in chunk %r" % kind)
        if kind == b"IHDR":
            width, height, bit_depth, colour_type = struct.unpack(">IIBB", body[:10])
            if bit_depth != 8 or colour_type not in (2, 6):
                raise RuntimeError("unsupported PNG")
            channels = 4 if colour_type == 6 else 3
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    raw = zlib.decompress(idat)
    stride = width * channels
    previous = bytearray(stride)
    pixels, alpha = [], []
    for y in range(height):
        start = y * (stride + 1)
        kind, line = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        if kind not in filters:
            raise RuntimeError("row %d has filter type %d" % (y, kind))
        for i in range(stride):
            a = line[i - channels] if i >= channels else 0
            b = previous[i]
            c = previous[i - channels] if i >= channels else 0
            if kind == 1:
                line[i] = (line[i] + a) & 255
            elif kind == 2:
                line[i] = (line[i] + b) & 255
            elif kind == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        for x in range(width):
            r, g, bl = line[x * channels:x * channels + 3]
            pixels.append(r << 16 | g << 8 | bl)
            alpha.append(line[x * channels + 3] if channels == 4 else 255)
        previous = line
    return Image(width, height, pixels), alpha


def png_rgba_rows(path, filters=(0,)):
    """(width, height, rows of 0xRRGGBBAA) of a PNG. By default as tavok's own writer makes it:
    every row must carry filter type 0, which that writer always uses."""
    data = open(path, "rb").read()
    width, height = struct.unpack(">II", data[16:24])
    image, alpha = read_png(path, filters=filters)
    rows = [[(image.pixels[y * width + x] << 8) | alpha[y * width + x] for x in range(width)]
            for y in range(height)]
    return width, height, rows
