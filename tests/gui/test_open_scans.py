#!/usr/bin/env python3
"""tavok opens scans from the command line: a NIfTI head (its mapping said in the log, the
slice view showing it), the same with --window, a DICOM series by its folder, and a bad option
(status 2, nothing opens). The file chooser's side is in tests/panel/test_panel_load.cpp.

Real files from Debian packages: the T1 head of mricron-data and CT_small.dcm of
python3-pydicom (copied into a temporary folder); skipped, saying so, where they are missing.
"""
import os
import shutil
import tempfile
import time

from guitest import Tavok, check, finish, options

opts = options()
tmp = tempfile.mkdtemp()
HEAD = "/usr/share/mricron/templates/ch2.nii.gz"
CT = "/usr/lib/python3/dist-packages/pydicom/data/test_files/CT_small.dcm"


def image_lit(t, timeout=30):
    """How many pixels of the image area (above the editor strip) are not black, once the
    picture shows anything at all: the log line comes before gradients and brick map, which
    take a while on a slow machine."""
    end = time.time() + timeout
    while True:
        shot = t.settled_screenshot()
        h = shot.height * 4 // 5
        lit = sum(1 for y in range(0, h, 4) for x in range(0, shot.width, 4) if shot.at(x, y) & 0xffffff)
        if lit or time.time() > end:
            return lit


if os.path.exists(HEAD):
    with Tavok(opts, [HEAD]) as t:
        check(t.wait_out(r"^NIfTI-1 .*ch2\.nii\.gz: 181 x 217 x 181 samples of u8, 1 x 1 x 1 mm$", timeout=40)
              is not None, "NIfTI head: the reader's line")
        check(t.wait_out(r"^mapped values 0\.\.178 \(0\.5 % to 99\.5 % of the samples\) to 0\.\.4095$")
              is not None, "NIfTI head: the mapping said in one line")
        check(image_lit(t) > 500, "NIfTI head: the slice view shows it")
        check("Orlen-data" not in t.stdout(), "NIfTI head: not read as .dat")
        t.key("q")
        check(t.wait_exit() == 0, "NIfTI head: q ends it")
    with Tavok(opts, [HEAD, "--window", "0,255.9375"]) as t:
        check(t.wait_out(r"^mapped values 0\.\.255\.938 to 0\.\.4095 \(--window\)$", timeout=40) is not None,
              "--window: the window is used and said")
        t.settle(0.3)
        t.key("q")
        t.wait_exit()
else:
    print("skipped: NIfTI head (mricron-data is not installed)")

if os.path.exists(CT):
    series = os.path.join(tmp, "series")
    os.makedirs(series)
    shutil.copy(CT, series)
    with Tavok(opts, [series]) as t:
        check(t.wait_out(r"^DICOM .*series: 128 x 128 x 1 samples of i16", timeout=40) is not None,
              "DICOM folder: its series is read")
        check(t.wait_out(r"^mapped hounsfield units -1024\.\.3071 to 0\.\.4095$") is not None,
              "DICOM folder: hounsfield units")
        t.settle(0.3)
        t.key("q")
        check(t.wait_exit() == 0, "DICOM folder: q ends it")
else:
    print("skipped: DICOM folder (python3-pydicom is not installed)")

# A bad importer option ends the program at once with status 2 and says why.
with Tavok(opts, ["--raw", "4,4", os.path.join(tmp, "x.raw")]) as t:
    status = t.wait_exit()
    check(status == 2, "bad --raw: exit status 2 (got %r)" % status)
    check("--raw takes X,Y,Z,TYPE[,le|be]" in t.stderr(), "bad --raw: the reason on standard error")

finish()
