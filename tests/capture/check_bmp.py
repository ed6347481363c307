#!/usr/bin/env python3
"""Usage: check_bmp.py <folder> <name>_<width>x<height>...
Reads the bitmaps <name>.bmp that capture_bmp_writer saved, with nothing but the
standard library, and compares them with the raw pictures <name>.bgra beside them."""
import struct
import sys


def pixel(buffer, at):
    return buffer[at:at + 3]  # blue, green, red; the fourth byte is not a colour


def check(folder, name):
    width, height = (int(v) for v in name.rsplit("_", 1)[1].split("x"))
    with open(f"{folder}/{name}.bmp", "rb") as f:
        data = f.read()
    with open(f"{folder}/{name}.bgra", "rb") as f:
        raw = f.read()
    stride = width * 4
    bf_type, bf_size, res1, res2, off_bits = struct.unpack_from("<2sIHHI", data, 0)
    bi_size, bi_width, bi_height, planes, bit_count, compression = struct.unpack_from("<IiiHHI", data, 14)
    # The display of the test run is 32 bits deep.
    got = (bf_type, len(data), bf_size, res1, res2, off_bits, bi_size, bi_width, bi_height, planes,
           bit_count, compression, len(raw))
    want = (b"BM", 54 + height * stride, 54 + height * stride, 0, 0, 54, 40, width, height, 1, 32, 0,
            height * stride)
    if got != want:
        return [f"{name}: header (type, length, bfSize, reserved 1 and 2, bfOffBits, biSize, biWidth, "
                f"biHeight, biPlanes, biBitCount, biCompression, raw length) is {got}, expected {want}"]
    errors = []
    wrong = 0
    for row in range(height):
        top = height - 1 - row  # the file's first line is the picture's bottom line
        for x in range(width):
            got = pixel(data, 54 + row * stride + x * 4)
            want = pixel(raw, top * stride + x * 4)
            if got != want:
                wrong += 1
                if wrong <= 5:
                    errors.append(f"{name}: pixel ({x},{top}) is {got.hex()}, expected {want.hex()}")
    if wrong:
        errors.append(f"{name}: {wrong} of {width * height} pixels differ")
    # The file's last line must be the picture's pure red top line.
    if any(pixel(data, 54 + (height - 1) * stride + x * 4) != b"\x00\x00\xff" for x in range(width)):
        errors.append(f"{name}: the file's last line is not the picture's red top line")
    return errors


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    errors = [e for name in sys.argv[2:] for e in check(sys.argv[1], name)]
    print("\n".join(errors) or f"checked {len(sys.argv) - 2} bitmaps: headers and every pixel as expected",
          file=sys.stderr if errors else sys.stdout)
    sys.exit(1 if errors else 0)
