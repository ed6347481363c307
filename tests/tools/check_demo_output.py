#!/usr/bin/env python3
"""Reads back the demo's report folder, with readers that aren't ours.

  check_demo_output.py DIR --seconds S --fps F --strokes N [--max-mb M]

- shared.mp4: ffprobe finds one H.264 1920x1080 stream holding exactly the
  frames that summary.txt says were pulled, no more than two shares of S
  seconds at F frames a second give and at least one a second per share; ffmpeg decodes a frame of the display
  share (the demo's stage colour fills the screen) and the last frame of the
  window share (the shared window's colour in the middle).
- storyboard.png: a 4x3 tiling whose first tile is of the display share and
  whose last is of the window share.
- contact_sheet.png and windows/*.png: pictures; the shared window's
  snapshot shows its colour in the middle.
- index.html: every file it links is in DIR, and it holds the summary.
- the raw stream and the BMPs are gone, and the folder is under M MB.
- summary.txt: every stroke came back identical and in order.
"""
import argparse
import glob
import json
import os
import re
import subprocess
import sys

STAGE = (150, 40, 160)       # the backdrop that fills the screen during the display share
WHITEBOARD = (30, 90, 200)   # "roomcore demo: whiteboard", the shared window
TOLERANCE = 14               # per channel, after RGB -> I420 -> H.264 -> RGB
TILE_W, TILE_H, GAP = 480, 270, 6  # the storyboard's tiles, padding and margin

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
    info = probe(path) or {"width": 0, "height": 0}
    width, height = int(info["width"]), int(info["height"])
    out = subprocess.run(
        ["ffmpeg", "-v", "error", "-i", path, "-vf", "select=eq(n\\,%d)" % index, "-frames:v", "1",
         "-f", "rawvideo", "-pix_fmt", "rgb24", "-"], capture_output=True)
    if out.returncode != 0 or not width or len(out.stdout) != width * height * 3:
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


def check_region(path, index, x, y, want, what, size=32):
    width, height, rgb = frame_rgb(path, index)
    if rgb is None:
        check(False, "%s: frame %d of %s could not be decoded" % (what, index, path))
        return
    colour = mean_colour(width, rgb, x, y, size)
    check(near(colour, want), "%s: mean colour %s at (%d,%d), painted %s" % (what, colour, x, y, want))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--seconds", type=float, required=True)
    parser.add_argument("--fps", type=float, required=True)
    parser.add_argument("--strokes", type=int, required=True)
    parser.add_argument("--max-mb", type=float, default=50)
    args = parser.parse_args()
    path = lambda *name: os.path.join(args.folder, *name)

    summary = open(path("summary.txt")).read()
    pulled = re.search(r"^stream .*pulled (\d+)", summary, re.M)
    pulled = int(pulled.group(1)) if pulled else -1
    mp4 = path("shared.mp4")
    info = probe(mp4)
    check(info is not None, "ffprobe reads %s" % mp4)
    if info:
        frames = int(info.get("nb_read_frames", 0))
        check((info["codec_name"], int(info["width"]), int(info["height"])) == ("h264", 1920, 1080),
              "the stream is %s %sx%s" % (info["codec_name"], info["width"], info["height"]))
        check(frames == pulled, "%d frames in the video, %d pulled in the summary" % (frames, pulled))
        expected = 2 * args.seconds * args.fps
        # Pacing is the capture's job and is tested there. Here the machine
        # may be loaded or emulated (an emulated CPU manages about 5 of the
        # 12 frames a second at this size), so the floor is one frame a
        # second per share; a capture never adds frames past its period.
        check(2 * args.seconds <= frames <= 1.1 * expected + 2,
              "%d frames for two shares of %.0f s at %.0f fps (%.0f at most, at least %.0f)" %
              (frames, args.seconds, args.fps, expected, 2 * args.seconds))
        # The display share comes first. The 1280x1024 screen is fitted into
        # the frame at x 285..1635: its lower right corner shows the
        # backdrop, its upper left the whiteboard window (at 40,40, 800x600).
        # The window share ends the file.
        check_region(mp4, 2, 1560, 1000, STAGE, "display share, backdrop")
        check_region(mp4, 2, 700, 320, WHITEBOARD, "display share, whiteboard window")
        check_region(mp4, frames - 1, 1000, 600, WHITEBOARD, "window share")

    # The storyboard: its tiles are the frames at a quarter of their size.
    story = path("storyboard.png")
    info = probe(story)
    check(info is not None and (info["codec_name"], int(info["width"]), int(info["height"])) ==
          ("png", 4 * TILE_W + 5 * GAP, 3 * TILE_H + 4 * GAP),
          "storyboard.png is a 4x3 tiling (%s)" % ("%sx%s" % (info["width"], info["height"]) if info else "-"))
    check_region(story, 0, GAP + 1560 // 4, GAP + 1000 // 4 - 16, STAGE, "storyboard, first tile", 8)
    check_region(story, 0, 4 * GAP + 3 * TILE_W + 1000 // 4, 3 * GAP + 2 * TILE_H + 600 // 4, WHITEBOARD,
                 "storyboard, last tile", 8)

    pictures = sorted(glob.glob(path("windows", "*.png")))
    check(len(pictures) >= 6, "%d snapshot files (pictures and icons of at least three windows)" % len(pictures))
    for picture in pictures + [path("contact_sheet.png")]:
        info = probe(picture)
        check(info is not None and info["codec_name"] == "png" and int(info["width"]) > 0,
              "ffprobe reads %s as a PNG picture" % os.path.basename(picture))
    whiteboard = [p for p in pictures if "whiteboard" in p and not p.endswith("_icon.png")]
    check(len(whiteboard) == 1, "one snapshot of the shared window")
    if whiteboard:
        width, height, rgb = frame_rgb(whiteboard[0], 0)
        colour = mean_colour(width, rgb, width // 2, height // 2, 16) if rgb else None
        check(colour is not None and near(colour, WHITEBOARD),
              "the shared window's snapshot shows %s in the middle, painted %s" % (colour, WHITEBOARD))

    page = open(path("index.html")).read()
    links = re.findall(r'(?:src|href)="([^"]+)"', page)
    missing = [l for l in links if not os.path.isfile(path(l))]
    check(links and not missing, "index.html links %d files, all there%s" % (len(links), missing or ""))
    im_line = [l for l in summary.splitlines() if l.startswith("im ")]
    check(im_line and im_line[0].split(None, 1)[1] in page, "index.html holds the summary table")

    raw = glob.glob(path("*.y4m")) + glob.glob(path("*.bmp")) + glob.glob(path("windows", "*.bmp"))
    check(not raw, "no raw file left: %s" % (raw or "none"))
    total = sum(os.path.getsize(os.path.join(d, f)) for d, _, fs in os.walk(args.folder) for f in fs)
    check(total < args.max_mb * 1e6, "%.1f MB in the folder (under %g MB)" % (total / 1e6, args.max_mb))

    check(im_line and ("identical and in order %d" % args.strokes) in im_line[0],
          "every stroke echoed unchanged: %s" % (im_line[0].strip() if im_line else "no im line"))

    if failures:
        print("%d check(s) failed" % len(failures))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
