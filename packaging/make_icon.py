#!/usr/bin/env python3
"""Makes the desktop icon (mailvane.png, 48x48) from the first toolbar face,
resources/mv1.bmp: each pixel becomes a 3x3 block and the magenta
background becomes transparent. Run from this folder; the output is
committed.
"""
import struct
import zlib

SCALE = 3
MAGENTA = (0xFF, 0x00, 0xFF)


def read_bmp(path):
    data = open(path, 'rb').read()
    offset, = struct.unpack_from('<I', data, 10)
    width, height, _, bpp = struct.unpack_from('<iiHH', data, 18)
    if bpp != 24:
        raise SystemExit(f'{path}: {bpp}-bit BMP, expected 24-bit')
    stride = (width * 3 + 3) & ~3
    rows = []
    for y in range(abs(height)):
        row = data[offset + y * stride: offset + y * stride + width * 3]
        rows.append([(row[x * 3 + 2], row[x * 3 + 1], row[x * 3]) for x in range(width)])
    if height > 0:  # stored bottom-up
        rows.reverse()
    return rows


def write_png(path, rows):
    height, width = len(rows), len(rows[0])
    raw = b''.join(b'\x00' + bytes(c for px in row for c in px) for row in rows)

    def chunk(kind, body):
        return struct.pack('>I', len(body)) + kind + body + struct.pack('>I', zlib.crc32(kind + body))

    png = b'\x89PNG\r\n\x1a\n'
    png += chunk(b'IHDR', struct.pack('>IIBBBBB', width, height, 8, 6, 0, 0, 0))
    png += chunk(b'IDAT', zlib.compress(raw, 9))
    png += chunk(b'IEND', b'')
    open(path, 'wb').write(png)


def main():
    face = read_bmp('../resources/mv1.bmp')
    rows = []
    for row in face:
        scaled = []
        for rgb in row:
            px = (0, 0, 0, 0) if rgb == MAGENTA else rgb + (0xFF,)
            scaled.extend([px] * SCALE)
        rows.extend([scaled] * SCALE)
    write_png('mailvane.png', rows)


if __name__ == '__main__':
    main()
