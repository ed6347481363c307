#!/usr/bin/env python3
"""Reads back what the demo host wrote, with readers that aren't ours.

  check_demo_output.py DIR --seconds S --fps F --strokes N

- shared.y4m: ffprobe finds one 1920x1080 video stream whose frame count
  fits two shares of S seconds at F frames a second; ffmpeg decodes a frame
  of the display share (the demo's stage colour fills the screen) and the
  last frame of the window share (the shared window's colour in the middle).
- windows/*.bmp and contact_sheet.bmp: ffprobe reads every one; the shared
  window's snapshot shows its colour in the middle.
- summary.txt: every stroke came back identical and in order.
"""
import argparse
import glob
import json
import os
import subprocess
import sys

STAGE = (150, 40, 160)       # the backdrop that fills the screen during the display share
WHITEBOARD = (30, 90, 200)   # "roomcore demo: whiteboard", the shared window
TOLERANCE = 14               # per channel, after RGB -> I420 -> RGB

failures = []


def check(condition, message):
    print(("ok:   " if condition else "FAIL: ") + message)
    if not condition:
        failures.append(message)


def probe(path):
    out = subprocess.run(
        ["ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
         "stream=codec_name,width,height,nb_read_frames", "-of", "json", path],
        capture_output=True, text=True)
    if out.returncode != 0:
        return None
    streams = json.loads(out.stdout).get("streams", [])
    return streams[0] if streams else None


def frame_rgb(path, index):
    """Frame `index` of a video or picture file as (width, height, rgb bytes)."""
    info = probe(path)
    width, height = int(info["width"]), int(info["height"])
    out = subprocess.run(
        ["ffmpeg", "-v", "error", "-i", path, "-vf", "select=eq(n\\,%d)" % index, "-frames:v", "1",
         "-f", "rawvideo", "-pix_fmt", "rgb24", "-"], capture_output=True)
    if out.returncode != 0 or len(out.stdout) != width * height * 3:
        return width, height, None
    return width, height, out.stdout


def mean_colour(width, rgb, x0, y0, size):
    sums = [0, 0, 0]
    for y in range(y0, y0 + size):
        for x in range(x0, x0 + size):
            at = (y * width + x) * 3
            for c in range(3):
                sums[c] += rgb[at + c]
    return tuple(round(s / (size * size)) for s in sums)


def near(colour, want):
    return all(abs(a - b) <= TOLERANCE for a, b in zip(colour, want))


def check_region(path, index, x, y, want, what):
    width, height, rgb = frame_rgb(path, index)
    if rgb is None:
        check(False, "%s: frame %d of %s could not be decoded" % (what, index, path))
        return
    colour = mean_colour(width, rgb, x, y, 32)
    check(near(colour, want), "%s: mean colour %s at (%d,%d) of frame %d, painted %s" % (what, colour, x, y, index, want))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--seconds", type=float, required=True)
    parser.add_argument("--fps", type=float, required=True)
    parser.add_argument("--strokes", type=int, required=True)
    args = parser.parse_args()

    y4m = os.path.join(args.folder, "shared.y4m")
    info = probe(y4m)
    check(info is not None, "ffprobe reads %s" % y4m)
    if info:
        frames = int(info.get("nb_read_frames", 0))
        check((int(info["width"]), int(info["height"])) == (1920, 1080),
              "the stream is %sx%s" % (info["width"], info["height"]))
        expected = 2 * args.seconds * args.fps
        # Pacing is the capture's job and is tested there; here a loaded
        # machine may lose some frames, but not most, and never adds any.
        check(0.5 * expected <= frames <= 1.1 * expected + 2,
              "%d frames for two shares of %.0f s at %.0f fps (%.0f expected)" % (frames, args.seconds, args.fps,
                                                                               expected))
        # The display share comes first. The 1280x1024 screen is fitted into
        # the frame at x 285..1635: its lower right corner shows the
        # backdrop, its upper left the whiteboard window (at 40,40, 800x600).
        # The window share ends the file.
        check_region(y4m, 2, 1560, 1000, STAGE, "display share, backdrop")
        check_region(y4m, 2, 700, 320, WHITEBOARD, "display share, whiteboard window")
        check_region(y4m, frames - 1, 1000, 600, WHITEBOARD, "window share")

    pictures = sorted(glob.glob(os.path.join(args.folder, "windows", "*.bmp")))
    check(len(pictures) >= 6, "%d snapshot files (pictures and icons of at least three windows)" % len(pictures))
    for path in pictures + [os.path.join(args.folder, "contact_sheet.bmp")]:
        info = probe(path)
        check(info is not None and info["codec_name"] == "bmp" and int(info["width"]) > 0,
              "ffprobe reads %s as a bitmap (%s)" % (os.path.basename(path),
                                                     "%sx%s" % (info["width"], info["height"]) if info else "-"))
    whiteboard = [p for p in pictures if "whiteboard" in p and not p.endswith("_icon.bmp")]
    check(len(whiteboard) == 1, "one snapshot of the shared window")
    if whiteboard:
        width, height, rgb = frame_rgb(whiteboard[0], 0)
        if rgb:
            colour = mean_colour(width, rgb, width // 2, height // 2, 16)
            check(near(colour, WHITEBOARD), "the shared window's snapshot shows %s in the middle, painted %s" %
                  (colour, WHITEBOARD))
        else:
            check(False, "the shared window's snapshot decodes")

    summary = open(os.path.join(args.folder, "summary.txt")).read()
    line = [l for l in summary.splitlines() if l.startswith("im ")]
    check(line and ("identical and in order %d" % args.strokes) in line[0],
          "every stroke echoed unchanged: %s" % (line[0].strip() if line else "no im line"))

    if failures:
        print("%d check(s) failed" % len(failures))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
