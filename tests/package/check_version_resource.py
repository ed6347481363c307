#!/usr/bin/env python3
"""Reads the version resource of built DLLs back with binutils' windres.

  check_version_resource.py WINDRES VERSION ARCH DLL...

Each DLL must carry FILEVERSION and PRODUCTVERSION equal to VERSION, the
strings FileVersion, ProductVersion, ProductName "roomcore", its own file
name as OriginalFilename, and a FileDescription that names ARCH.
"""
import os
import re
import subprocess
import sys


def main():
    windres, version, arch, dlls = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
    parts = (version.split(".") + ["0"] * 4)[:4]
    failures = 0
    for dll in dlls:
        rc = subprocess.run([windres, "-i", dll, "-O", "rc"], capture_output=True, text=True)
        fixed = dict(re.findall(r"^ (FILEVERSION|PRODUCTVERSION|FILETYPE) (.+)$", rc.stdout, re.M))
        strings = dict(re.findall(r'VALUE "(\w+)", "([^"]*)"', rc.stdout))
        want = {
            "FILEVERSION": ", ".join(parts),
            "PRODUCTVERSION": ", ".join(parts),
            "FILETYPE": "0x2",
            "FileVersion": ".".join(parts),
            "ProductVersion": version,
            "ProductName": "roomcore",
            "OriginalFilename": os.path.basename(dll),
        }
        got = dict(fixed, **strings)
        wrong = ["%s is %r, not %r" % (k, got.get(k), v) for k, v in want.items() if got.get(k) != v]
        if not strings.get("FileDescription", "").endswith("(%s)" % arch):
            wrong.append("FileDescription %r does not name %s" % (strings.get("FileDescription"), arch))
        name = os.path.basename(dll)
        if rc.returncode != 0 or wrong:
            failures += 1
            print("FAIL: %s: %s" % (name, "; ".join(wrong) or rc.stderr.strip()))
        else:
            print("ok:   %s %s \"%s\"" % (name, strings["FileVersion"], strings["FileDescription"]))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
