#!/usr/bin/env python3
"""Turns what the demo host wrote into a report that opens from disk.

  demo_report.py DIR [--keep-raw]

In DIR, from shared.y4m, windows/*.bmp, contact_sheet.bmp and summary.txt
(the demo host's outputs) it makes, with Debian's ffmpeg:

  shared.mp4          the pulled stream, H.264, every frame kept
  storyboard.png      a dozen frames of the stream tiled, each with its time
  contact_sheet.png   the picker's snapshots side by side
  windows/*.png       each offered window's snapshot picture and icon
  index.html          one page: the summary table, the storyboard, the
                      contact sheet and the video, with nothing to fetch

and then removes the raw files (the Y4M and the BMPs) unless --keep-raw.
It prints every output as a path of this machine, with its size.
"""
import argparse
import glob
import html
import os
import re
import subprocess
import sys
import time

FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"
STORYBOARD_FRAMES = 12
# H.264 encoders of Debian's ffmpeg, best first: libx264 is there in
# Debian's build; the others are what other builds may offer instead.
H264_ENCODERS = ["libx264", "libopenh264", "h264_vaapi"]


def ffmpeg(*args):
    out = subprocess.run(["ffmpeg", "-v", "error", "-y", *args], capture_output=True, text=True)
    if out.returncode != 0:
        sys.exit("demo_report: ffmpeg %s failed:\n%s" % (" ".join(args), out.stderr.strip()))


def h264_encoder():
    listed = subprocess.run(["ffmpeg", "-hide_banner", "-encoders"], capture_output=True, text=True).stdout
    for name in H264_ENCODERS:
        if re.search(r"^ V\S* %s " % name, listed, re.M):
            return name
    sys.exit("demo_report: this ffmpeg has no H.264 encoder (%s)" % ", ".join(H264_ENCODERS))


def y4m_rate(path):
    with open(path, "rb") as f:
        header = f.readline().decode("ascii", "replace")
    match = re.search(r" F(\d+):(\d+)", header)
    return int(match.group(1)) / int(match.group(2)) if match else 12.0


def summary_rows(text):
    """The summary table's lines as (what, figures) pairs."""
    rows = []
    for line in text.splitlines():
        if line.startswith("=="):
            continue
        what, _, figures = line.partition(" ")
        if what:
            rows.append((what, figures.strip()))
    return rows


def pulled_frames(text):
    match = re.search(r"^stream .*pulled (\d+)", text, re.M)
    return int(match.group(1)) if match else 0


def make_storyboard(y4m, frames, rate, png):
    count = min(STORYBOARD_FRAMES, frames)
    picks = sorted({round(i * (frames - 1) / max(1, count - 1)) for i in range(count)})
    select = "+".join("eq(n\\,%d)" % n for n in picks)
    label = "frame %%{eif\\:round(t*%g)\\:d}   %%{pts\\:hms}" % rate
    draw = ("drawtext=fontfile=%s:text='%s':x=8:y=h-th-8:fontsize=18:fontcolor=white:"
            "box=1:boxcolor=black@0.6:boxborderw=4" % (FONT, label))
    columns = 4
    rows = (len(picks) + columns - 1) // columns
    ffmpeg("-i", y4m, "-vf", "select='%s',scale=480:-2,%s,tile=%dx%d:padding=6:margin=6:color=0x202020" %
           (select, draw, columns, rows), "-frames:v", "1", "-fps_mode", "passthrough", png)
    return picks


PAGE = """<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>roomcore demo</title>
<style>
body {{ font-family: sans-serif; margin: 2em auto; max-width: 1280px; color: #222; }}
table {{ border-collapse: collapse; }} td {{ padding: 3px 12px; border-bottom: 1px solid #ddd; }}
td:first-child {{ font-weight: bold; }} td:last-child {{ font-family: monospace; white-space: pre; }}
img, video {{ max-width: 100%; border: 1px solid #888; }}
</style></head><body>
<h1>roomcore demo</h1>
<p>A scripted meeting that the demo host ran against <code>roomcore.dll</code> and
the stand-in SDKs: the engine in a room, the share picker, the display and then a
window shared at 12 fps, the microphone test and whiteboard strokes through the IM group.</p>
<h2>Summary</h2>
<table>
{rows}
</table>
<h2>Storyboard</h2>
<p>{story_count} frames of the shared stream as the SDK pulled it, evenly spread, with
each one's place in the stream (the display share first, then the window share).</p>
<img src="storyboard.png" alt="storyboard">
<h2>Share picker</h2>
<p>The snapshot of every window that a share picker offers.</p>
<img src="contact_sheet.png" alt="contact sheet">
<h2>The shared stream</h2>
<p>{frames} frames, 1920x1080, {rate:g} fps, H.264 ({encoder}).</p>
<video src="shared.mp4" controls muted width="960"></video>
<h2>Files</h2>
<ul>
{files}
</ul>
</body></html>
"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--keep-raw", action="store_true", help="keep shared.y4m and the BMPs")
    args = parser.parse_args()
    started = time.time()
    folder = os.path.abspath(args.folder)
    path = lambda name: os.path.join(folder, name)

    summary = open(path("summary.txt")).read()
    y4m = path("shared.y4m")
    if not os.path.exists(y4m):
        sys.exit("demo_report: no %s (did the demo run?)" % y4m)
    frames = pulled_frames(summary)
    rate = y4m_rate(y4m)
    encoder = h264_encoder()

    ffmpeg("-i", y4m, "-c:v", encoder, *(["-preset", "veryfast", "-crf", "23"] if encoder == "libx264" else []),
           "-pix_fmt", "yuv420p", "-fps_mode", "passthrough", "-movflags", "+faststart", path("shared.mp4"))
    picks = make_storyboard(y4m, frames, rate, path("storyboard.png"))
    raw = [y4m, path("contact_sheet.bmp")]
    ffmpeg("-i", path("contact_sheet.bmp"), path("contact_sheet.png"))
    for old in glob.glob(path("windows/*.png")):
        os.remove(old)
    for bmp in sorted(glob.glob(path("windows/*.bmp"))):
        ffmpeg("-i", bmp, bmp[:-4] + ".png")
        raw.append(bmp)
    if not args.keep_raw:
        for name in raw:
            os.remove(name)

    outputs = ["index.html", "summary.txt", "shared.mp4", "storyboard.png", "contact_sheet.png"]
    windows = sorted(os.path.relpath(p, folder) for p in glob.glob(path("windows/*.png")))
    files = "\n".join('<li><a href="%s">%s</a></li>' % (html.escape(n), html.escape(n))
                      for n in outputs[1:] + windows)
    rows = "\n".join("<tr><td>%s</td><td>%s</td></tr>" % (html.escape(a), html.escape(b))
                     for a, b in summary_rows(summary))
    with open(path("index.html"), "w") as page:
        page.write(PAGE.format(rows=rows, story_count=len(picks), frames=frames, rate=rate, encoder=encoder,
                               files=files))

    total = 0
    listed = outputs + (["shared.y4m"] if args.keep_raw else []) + windows
    print("== report")
    for name in listed:
        size = os.path.getsize(path(name))
        total += size
        print("%8.1f MB  %s" % (size / 1e6, path(name)))
    print("%8.1f MB  in all, made in %.0f s; open %s in a browser" % (total / 1e6, time.time() - started,
                                                                    path("index.html")))
    return 0


if __name__ == "__main__":
    sys.exit(main())
