#!/usr/bin/env python3
"""Draws the toolbar faces (mv1.bmp .. mv4.bmp) and the status animation
("mail search.png", a horizontal strip of frames) from pixel maps below.

Faces are 16x16 24-bit BMPs on magenta (0xFF00FF), the colour the toolbar
builder makes transparent. Run from this folder; the outputs are committed.
"""
import struct
import zlib

PALETTE = {
    '.': (0xFF, 0x00, 0xFF),  # transparent
    'k': (0x20, 0x20, 0x20),
    'w': (0xFF, 0xFF, 0xFF),
    'b': (0x20, 0x50, 0xC0),
    'g': (0x20, 0xA0, 0x30),
    'y': (0xF0, 0xC0, 0x30),
    'r': (0xC0, 0x30, 0x30),
    's': (0xA0, 0xA0, 0xA0),
}

# A rules list: a sheet with ruled lines and bullets.
RULES = """
................
..kkkkkkkkkkkk..
..kwwwwwwwwwwk..
..kwbwkkkkkwwk..
..kwwwwwwwwwwk..
..kwbwkkkkkkwk..
..kwwwwwwwwwwk..
..kwbwkkkkwwwk..
..kwwwwwwwwwwk..
..kwbwkkkkkkwk..
..kwwwwwwwwwwk..
..kwbwkkkkkwwk..
..kwwwwwwwwwwk..
..kkkkkkkkkkkk..
................
................
"""

# A plus: add a rule.
PLUS = """
................
................
......gggg......
......gggg......
......gggg......
......gggg......
..gggggggggggg..
..gggggggggggg..
..gggggggggggg..
..gggggggggggg..
......gggg......
......gggg......
......gggg......
......gggg......
................
................
"""

# A run arrow.
RUN = """
................
................
...gg...........
...gggg.........
...gggggg.......
...gggggggg.....
...gggggggggg...
...gggggggggggg.
...gggggggggggg.
...gggggggggg...
...gggggggg.....
...gggggg.......
...gggg.........
...gg...........
................
................
"""

# A pencil: update a rule.
PENCIL = """
................
............rr..
...........rrrr.
..........yrrrr.
.........yyyrr..
........yyyyy...
.......yyyyy....
......yyyyy.....
.....yyyyy......
....yyyyy.......
...syyyy........
...ssyy.........
..kss...........
..kk............
................
................
"""


def rows(art):
    lines = [l for l in art.strip('\n').split('\n')]
    assert len(lines) == 16 and all(len(l) == 16 for l in lines), art
    return [[PALETTE[c] for c in l] for l in lines]


def write_bmp(path, pixels):
    height = len(pixels)
    width = len(pixels[0])
    stride = (width * 3 + 3) & ~3
    data = bytearray()
    for row in reversed(pixels):  # bottom-up
        line = bytearray()
        for r, g, b in row:
            line += bytes((b, g, r))
        line += b'\0' * (stride - len(line))
        data += line
    header = struct.pack('<2sIHHI', b'BM', 54 + len(data), 0, 0, 54)
    info = struct.pack('<IiiHHIIiiII', 40, width, height, 1, 24, 0, len(data), 2835, 2835, 0, 0)
    with open(path, 'wb') as f:
        f.write(header + info + data)


def write_png(path, pixels):
    height = len(pixels)
    width = len(pixels[0])
    raw = b''.join(b'\0' + b''.join(bytes(p) for p in row) for row in pixels)

    def chunk(kind, body):
        return struct.pack('>I', len(body)) + kind + body + struct.pack('>I', zlib.crc32(kind + body) & 0xFFFFFFFF)

    png = b'\x89PNG\r\n\x1a\n'
    png += chunk(b'IHDR', struct.pack('>IIBBBBB', width, height, 8, 6, 0, 0, 0))
    png += chunk(b'IDAT', zlib.compress(raw, 9))
    png += chunk(b'IEND', b'')
    with open(path, 'wb') as f:
        f.write(png)


def search_strip(frames=8, size=32):
    """A letter with a magnifying glass sweeping across it, one frame per
    position; transparent background (RGBA)."""
    clear = (0, 0, 0, 0)
    strip = [[clear] * (size * frames) for _ in range(size)]
    for f in range(frames):
        ox = f * size
        # the letter
        for y in range(8, 24):
            for x in range(4, 28):
                edge = y in (8, 23) or x in (4, 27)
                strip[y][ox + x] = (0x20, 0x20, 0x20, 255) if edge else (0xFF, 0xFF, 0xF0, 255)
        for i in range(12):  # the flap
            strip[8 + i // 2 + 1][ox + 4 + i] = (0x20, 0x20, 0x20, 255)
            strip[8 + i // 2 + 1][ox + 27 - i] = (0x20, 0x20, 0x20, 255)
        # the glass: a ring moving left to right and back
        pos = f if f < frames // 2 + 1 else frames - f
        cx, cy, r = 9 + pos * 3, 14, 5
        for y in range(size):
            for x in range(size):
                d2 = (x - cx) ** 2 + (y - cy) ** 2
                if (r - 1) ** 2 <= d2 <= r ** 2 + 1:
                    strip[y][ox + x] = (0x20, 0x50, 0xC0, 255)
        for i in range(5):  # the handle
            x, y = cx + r - 1 + i, cy + r - 1 + i
            if 0 <= x < size and 0 <= y < size:
                strip[y][ox + x] = (0x60, 0x40, 0x20, 255)
    return strip


if __name__ == '__main__':
    write_bmp('mv1.bmp', rows(RULES))
    write_bmp('mv2.bmp', rows(PLUS))
    write_bmp('mv3.bmp', rows(RUN))
    write_bmp('mv4.bmp', rows(PENCIL))
    write_png('mail search.png', search_strip())
