#!/usr/bin/env python3
"""Reads the bitmaps that capture_bmp_writer saved, with nothing but the
standard library, and compares them with the raw pictures written beside them.

Usage: check_bmp.py <folder> <name>...   (files <name>.bmp and <name>.bgra;
the name ends in _<width>x<height>)
"""
import struct
import sys


def check(folder, name):
    width, height = (int(v) for v in name.rsplit("_", 1)[1].split("x"))
    with open(f"{folder}/{name}.bmp", "rb") as f:
        data = f.read()
    with open(f"{folder}/{name}.bgra", "rb") as f:
        raw = f.read()
    errors = []

    def expect(what, got, want):
        if got != want:
            errors.append(f"{name}: {what} is {got}, expected {want}")

    bf_type, bf_size, res1, res2, off_bits = struct.unpack_from("<2sIHHI", data, 0)
    (bi_size, bi_width, bi_height, planes, bit_count, compression, size_image,
     xppm, yppm, clr_used, clr_important) = struct.unpack_from("<IiiHHIIiiII", data, 14)
    expect("bfType", bf_type, b"BM")
    expect("biBitCount (the display of the test run is 32 bits deep)", bit_count, 32)
    image_size = width * height * bit_count // 8
    expect("file length", len(data), 54 + image_size)
    expect("bfSize", bf_size, 54 + image_size)
    expect("bfReserved", (res1, res2), (0, 0))
    expect("bfOffBits", off_bits, 54)
    expect("biSize", bi_size, 40)
    expect("biWidth", bi_width, width)
    expect("biHeight (positive: bottom line first)", bi_height, height)
    expect("biPlanes", planes, 1)
    expect("biCompression", compression, 0)
    expect("raw picture length", len(raw), width * height * 4)
    if errors:
        return errors

    stride = width * 4
    wrong = 0
    for row in range(height):
        # The file's first line is the picture's bottom line.
        file_line = data[off_bits + row * stride: off_bits + (row + 1) * stride]
        top = height - 1 - row
        raw_line = raw[top * stride:(top + 1) * stride]
        for x in range(width):
            got = file_line[x * 4: x * 4 + 3]
            want = raw_line[x * 4: x * 4 + 3]
            if got != want:
                wrong += 1
                if wrong <= 5:
                    errors.append(f"{name}: pixel ({x},{top}) is {got.hex()}, expected {want.hex()}")
    # The last line of the file must be the picture's pure red top line.
    last = data[off_bits + (height - 1) * stride: off_bits + height * stride]
    if any(last[x * 4: x * 4 + 3] != b"\x00\x00\xff" for x in range(width)):
        errors.append(f"{name}: the file's last line is not the picture's red top line")
    if wrong:
        errors.append(f"{name}: {wrong} of {width * height} pixels differ")
    return errors


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    folder = sys.argv[1]
    errors = []
    for name in sys.argv[2:]:
        errors += check(folder, name)
    for e in errors:
        print(e, file=sys.stderr)
    if not errors:
        print(f"checked {len(sys.argv) - 2} bitmaps: headers and every pixel as expected")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
