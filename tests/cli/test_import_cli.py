"""test_import_cli.py — tavok-import from the outside, on a real CT written here as DICOM
series: slice order from positions (files in shuffled order), Hounsfield units, the turn of
axial, scanner-standard and coronal layouts onto the same grid, resampling to cubic voxels,
every bad series with its message, and the options' errors.

    /usr/bin/python3 test_import_cli.py --import build/tavok-import [--render build/tavok-render]

The CT is the head of Debian's invesalius-examples (int16 Hounsfield units, 256 x 256 x 108,
0.957 x 0.957 x 1.5 mm), read from its project file at run time; pydicom (python3-pydicom) and
numpy write the series into a temporary folder. Skips, saying so, when they are missing.
"""
import argparse
import io
import os
import plistlib
import random
import subprocess
import sys
import tarfile
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from testlib import check, finish, shared_data, skip  # noqa: E402

CRANIUM = "/usr/share/doc/invesalius-examples/examples/Cranium.inv3"

try:
    import numpy as np
    import pydicom
    from pydicom.dataset import Dataset, FileMetaDataset
    from pydicom.uid import ExplicitVRLittleEndian, generate_uid
except ImportError as e:  # the test's own needs, installed by scripts/deps
    np = None
    missing = str(e)


def run(tool, args, timeout=300):
    p = subprocess.run([tool] + args, capture_output=True, text=True, timeout=timeout)
    return p.returncode, p.stdout, p.stderr


def read_cranium():
    """The CT as HU[z][y][x] (y from the back of the head to the face, z from the neck up)
    and its spacing (x, y, z) in mm."""
    with tarfile.open(CRANIUM, "r:gz") as tar:
        members = {os.path.basename(m.name): m for m in tar.getmembers()}
        info = plistlib.load(tar.extractfile(members["main.plist"]))
        raw = tar.extractfile(members["matrix.dat"]).read()
    shape = tuple(info["matrix"]["shape"])
    hu = np.frombuffer(raw, dtype="<i2").reshape(shape)
    return hu, [float(s) for s in info["spacing"]]


def read_dat(path):
    with open(path, "rb") as f:
        b = f.read()
    X, Y, Z = np.frombuffer(b[:6], dtype="<u2")
    return np.frombuffer(b[6:], dtype="<u2").reshape(int(Z), int(Y), int(X))


# ---------------------------------------------------------------------------------------------
# Writing series.

def slice_file(path, series_uid, image, position, orientation, spacing, number, hu_stored=True):
    """One CT slice: 12 bits stored in 16, unsigned, rescale intercept -1024 (stored = HU +
    1024), explicit little-endian."""
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds = Dataset()
    ds.file_meta = meta
    ds.is_little_endian = True
    ds.is_implicit_VR = False
    ds.SOPClassUID = meta.MediaStorageSOPClassUID
    ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
    ds.StudyInstanceUID = generate_uid()
    ds.SeriesInstanceUID = series_uid
    ds.Modality = "CT"
    ds.InstanceNumber = number
    ds.ImagePositionPatient = [float(v) for v in position]
    ds.ImageOrientationPatient = [float(v) for v in orientation]
    ds.PixelSpacing = [float(spacing[0]), float(spacing[1])]
    ds.SliceThickness = 1.5
    ds.Rows, ds.Columns = image.shape
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.BitsAllocated = 16
    ds.BitsStored = 12
    ds.HighBit = 11
    ds.PixelRepresentation = 0
    ds.RescaleIntercept = -1024
    ds.RescaleSlope = 1
    stored = (image.astype(np.int32) + 1024).clip(0, 4095).astype("<u2")
    ds.PixelData = stored.tobytes()
    ds.save_as(path, write_like_original=False)


def write_series(folder, hu, spacing, layout, skip_slice=None, duplicate=None, resize=None):
    """Writes the CT as one series of files named in shuffled order. Layouts:
    axial      rows along y (back to face), columns along x (left to right), as the grid has
               them: orientation (-1,0,0, 0,-1,0) in DICOM's left-posterior-superior frame;
    scanner    what a scanner writes: columns to the patient's left, rows to the back,
               orientation (1,0,0, 0,1,0), so both image axes run backwards;
    coronal    one slice per y, rows from the crown down, columns to the left: orientation
               (1,0,0, 0,0,-1), the slices stacked along the back-to-front axis."""
    os.makedirs(folder)
    uid = generate_uid()
    Z, Y, X = hu.shape
    sx, sy, sz = spacing
    slices = []
    if layout in ("axial", "scanner"):
        for k in range(Z):
            if layout == "axial":
                image, orient = hu[k], (-1, 0, 0, 0, -1, 0)
                # pixel (0, 0) is the grid's (0, 0): the patient's right and back
                pos = (0.0, 0.0, k * sz)
            else:
                image, orient = hu[k, ::-1, ::-1], (1, 0, 0, 0, 1, 0)
                pos = (-(X - 1) * sx, -(Y - 1) * sy, k * sz)
            slices.append((image, pos, orient, (sy, sx)))
    else:
        for j in range(Y):
            image = hu[::-1, j, ::-1]  # rows: z from the top down; columns: x to the left
            pos = (-(X - 1) * sx, -j * sy, (Z - 1) * sz)
            slices.append((image, pos, (1, 0, 0, 0, 0, -1), (sz, sx)))
    names = ["IM%05d" % n for n in range(len(slices))]
    random.Random(13).shuffle(names)
    for n, (image, pos, orient, pixel_spacing) in enumerate(slices):
        if n == skip_slice:
            continue
        if n == resize:
            image = image[:-16]
        if n == duplicate:
            pos = slices[n - 1][1]
        slice_file(os.path.join(folder, names[n]), uid, image, pos, orient, pixel_spacing, n + 1)
    return names


# ---------------------------------------------------------------------------------------------
# Tests.

def expected_grid(hu):
    """Densities of the CT on the grid: HU + 1024, clamped to 0..4095."""
    return (hu.astype(np.int32) + 1024).clip(0, 4095).astype(np.uint16)


def test_layouts(tmp, hu, spacing, opts):
    want = expected_grid(hu)
    shared = shared_data("ct-head-256x256x108.dat")
    if shared:
        check(np.array_equal(read_dat(shared), want),
              "the shared ct-head .dat is this CT's HU + 1024 (the reference of this test)")
    for layout in ("axial", "scanner", "coronal"):
        folder = os.path.join(tmp, layout)
        write_series(folder, hu, spacing, layout)
        out = os.path.join(tmp, layout + ".dat")
        status, log, err = run(opts.tool, [folder, out, "--keep-grid"])
        if not check(status == 0, "%s series converts (%s)" % (layout, err.strip()[:300])):
            continue
        check("mapped hounsfield units -1024..3071 to 0..4095" in log,
              "%s: the hounsfield mapping is said" % layout)
        got = read_dat(out)
        check(got.shape == want.shape, "%s: grid %s (want %s)" % (layout, got.shape[::-1], want.shape[::-1]))
        if got.shape == want.shape:
            diff = np.argwhere(got != want)
            check(len(diff) == 0, "%s: every voxel lands where the axial grid has it%s" %
                  (layout, "" if len(diff) == 0 else " (first wrong z,y,x %s)" % (diff[0],)))
    # Landmarks: the tip of the nose is the soft tissue (density 900 and above) that reaches
    # furthest toward +y, in the middle of x and low in z; the top slices hold only the cap of
    # the skull.
    grid = read_dat(os.path.join(tmp, "scanner.dat"))
    tissue = np.argwhere(grid >= 900)
    z, y, x = tissue[tissue[:, 1].argmax()]
    check(y > 0.9 * grid.shape[1] and abs(x - grid.shape[2] / 2) < 20 and z < 0.4 * grid.shape[0],
          "landmark: the nose is toward +y, in the middle of x, low in z (at x %d, y %d, z %d)" % (x, y, z))
    bone = grid >= 1400
    top = bone[-3:].sum(axis=(1, 2))
    middle = bone[grid.shape[0] // 2].sum()
    check(top.max() < middle / 10, "landmark: the crown is toward +z (bone in the top slices %s, "
          "in the middle %d)" % (list(top), middle))


def test_resampled(tmp, hu, spacing, opts):
    """By default the 1.5 mm slices become 0.957 mm ones: (108 - 1) * 1.5 / 0.9570312 = 167.7,
    so 168 slices, each interpolated from its two neighbours, half up."""
    out = os.path.join(tmp, "resampled.dat")
    status, log, err = run(opts.tool, [os.path.join(tmp, "scanner"), out])
    if not check(status == 0, "the series converts with resampling (%s)" % err.strip()[:300]):
        return
    check("resampled 256 x 256 x 108 voxels of 0.957031 x 0.957031 x 1.5 mm to 256 x 256 x 168 "
          "voxels of 0.957031 mm" in log, "the resampling is said (%s)" % log.strip()[-200:])
    got = read_dat(out)
    check(got.shape == (168, 256, 256), "resampled grid is 256 x 256 x 168 (got %s)" % (got.shape[::-1],))
    if got.shape != (168, 256, 256):
        return
    src = expected_grid(hu).astype(np.float64)
    step = spacing[0] / spacing[2]
    worst = 0
    for z in (0, 1, 2, 57, 100, 166, 167):
        p = z * step
        z0 = int(p)
        w = p - z0
        if z0 >= src.shape[0] - 1:
            z0, w = src.shape[0] - 1, 0.0
        z1 = z0 + 1 if w > 0 else z0
        want = np.floor(src[z0] + (src[z1] - src[z0]) * w + 0.5).astype(np.uint16)
        worst = max(worst, int(np.abs(got[z].astype(np.int32) - want).max()))
    check(worst == 0, "resampled slices are the trilinear mix of their neighbours (worst %d)" % worst)
    # The head keeps its proportions: its height in mm is the same before and after.
    def height(grid, mm):
        rows = np.argwhere((grid >= 1400).any(axis=(1, 2)))[:, 0]
        return (rows.max() - rows.min()) * mm
    h0, h1 = height(expected_grid(hu), spacing[2]), height(got, spacing[0])
    check(abs(h0 - h1) <= 1.5, "the skull is as tall resampled (%.1f mm) as scanned (%.1f mm)" % (h1, h0))


def expect_refused(opts, args, message, what, tmp):
    out = os.path.join(tmp, "refused.dat")
    if os.path.exists(out):
        os.remove(out)
    status, log, err = run(opts.tool, args + [out] if len(args) == 1 else args[:1] + [out] + args[1:])
    ok = check(status == 2, "%s: exit status 2 (got %d)" % (what, status))
    ok &= check(message in log, "%s: says %r (got %r)" % (what, message, log.strip()[-300:]))
    ok &= check(not os.path.exists(out), "%s: no file written" % what)
    return ok


def test_bad_series(tmp, hu, spacing, opts):
    small = hu[40:52]  # twelve slices keep these quick
    folder = os.path.join(tmp, "gap")
    names = write_series(folder, small, spacing, "axial", skip_slice=5)
    expect_refused(opts, [folder], "a gap of 3 mm between slices %s and %s, where the others are "
                   "1.5 mm apart (a slice is missing)" % (names[4], names[6]), "a missing slice", tmp)
    folder = os.path.join(tmp, "duplicate")
    names = write_series(folder, small, spacing, "axial", duplicate=7)
    pair = sorted([names[6], names[7]])
    expect_refused(opts, [folder], "can't read series %s: slices " % folder, "two slices at one position", tmp)
    status, log, _ = run(opts.tool, [folder, os.path.join(tmp, "d.dat")])
    check(("slices %s and %s stand at the same position" % (pair[0], pair[1])) in log or
          ("slices %s and %s stand at the same position" % (pair[1], pair[0])) in log,
          "two slices at one position: both are named (%s)" % log.strip()[-200:])
    folder = os.path.join(tmp, "resized")
    names = write_series(folder, small, spacing, "axial", resize=3)
    expect_refused(opts, [folder], "is 256 x 240 x 1, the first is 256 x 256 x 1", "a slice of another size", tmp)
    # Any file of a series opens the series; a lone file of it, the same.
    folder = os.path.join(tmp, "twelve")
    names = write_series(folder, small, spacing, "axial")
    out = os.path.join(tmp, "twelve.dat")
    status, log, err = run(opts.tool, [os.path.join(folder, names[3]), out, "--keep-grid"])
    if check(status == 0, "one file of a series opens the series (%s)" % err.strip()[:200]):
        check(np.array_equal(read_dat(out), expected_grid(small)), "one file of a series: all twelve slices in order")


def test_errors(tmp, opts):
    junk = os.path.join(tmp, "notes.txt")
    with open(junk, "w") as f:
        f.write("no scan here\n")
    expect_refused(opts, [junk], "can't read %s: no reader recognises it" % junk, "an unknown file", tmp)
    expect_refused(opts, [os.path.join(tmp, "missing.nii")], "can't open file %s" % os.path.join(tmp, "missing.nii"),
                   "a missing file", tmp)
    empty = os.path.join(tmp, "empty")
    os.makedirs(empty)
    expect_refused(opts, [empty], "can't read %s: it holds no DICOM files" % empty, "an empty folder", tmp)
    for args, message in [(["--raw", "4,4"], "--raw takes X,Y,Z,TYPE[,le|be]"),
                          (["--window", "9,3"], "--window takes LO,HI with LO below HI, not 9,3"),
                          (["--max-size", "0"], "--max-size takes a side of 1 to 65535 voxels, not 0"),
                          (["--frobnicate"], "unknown option --frobnicate")]:
        status, _, err = run(opts.tool, [junk, os.path.join(tmp, "x.dat")] + args)
        check(status == 2 and message in err and not os.path.exists(os.path.join(tmp, "x.dat")),
              "option error %s: status 2, says %r (got %r)" % (args[0], message, err.strip()))


def test_raw_and_max_size(tmp, hu, opts):
    """A raw dump of the CT (big-endian i16 Hounsfield units) with --window -1024,3071 is the
    same grid as the series; --max-size 100 averages boxes of 3."""
    raw = os.path.join(tmp, "ct.raw")
    hu.astype(">i2").tofile(raw)
    out = os.path.join(tmp, "raw.dat")
    Z, Y, X = hu.shape
    status, log, err = run(opts.tool, [raw, out, "--raw", "%d,%d,%d,i16,be" % (X, Y, Z), "--window", "-1024,3071"])
    if check(status == 0, "raw dump converts (%s)" % err.strip()[:200]):
        check(np.array_equal(read_dat(out), expected_grid(hu)), "raw dump: the same grid as the series")
    status, log, err = run(opts.tool, [raw, out, "--raw", "%d,%d,%d,i16,be" % (X, Y, Z), "--max-size", "100"])
    if check(status == 0, "raw dump with --max-size converts (%s)" % err.strip()[:200]):
        got = read_dat(out)
        check(got.shape == (36, 86, 86), "--max-size 100: boxes of 3 give 86 x 86 x 36 (got %s)" % (got.shape[::-1],))
        check("by averaging boxes of 3 x 3 x 3 voxels (--max-size)" in log, "--max-size: the reduction is said")


def test_render_equal(tmp, opts):
    """tavok-render of the series equals tavok-render of the .dat that tavok-import wrote."""
    if not opts.render:
        print("skipped: tavok-render comparison (no --render given)")
        return
    folder = os.path.join(tmp, "scanner")
    dat = os.path.join(tmp, "for-render.dat")
    status, _, _ = run(opts.tool, [folder, dat])
    if not check(status == 0, "series converts for the render comparison"):
        return
    view = ["--size", "160x128", "--opacity", "1399=0", "--opacity", "1400=1", "--set", "light_model=1"]
    a, b = os.path.join(tmp, "series.png"), os.path.join(tmp, "dat.png")
    sa, _, ea = run(opts.render, [folder, "-o", a] + view)
    sb, _, eb = run(opts.render, [dat, "-o", b] + view)
    if check(sa == 0 and sb == 0, "both render (%s %s)" % (ea.strip()[:200], eb.strip()[:200])):
        with open(a, "rb") as fa, open(b, "rb") as fb:
            check(fa.read() == fb.read(), "the series renders exactly as its .dat")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--import", dest="tool")
    parser.add_argument("--render")
    parser.add_argument("--write-series", help="only write the CT as a scanner's series into "
                        "this folder (for bench-import) and stop")
    opts = parser.parse_args()
    if np is None:
        skip("numpy and pydicom are needed (scripts/deps installs them): " + missing)
    if not os.path.exists(CRANIUM):
        skip("the CT of invesalius-examples is not installed (scripts/deps installs it)")
    hu, spacing = read_cranium()
    if opts.write_series:
        write_series(opts.write_series, hu, spacing, "scanner")
        print("wrote the CT series to " + opts.write_series)
        return
    check(hu.shape == (108, 256, 256) and spacing[2] == 1.5, "the CT is 256 x 256 x 108 at 1.5 mm slices")
    with tempfile.TemporaryDirectory(prefix="tavok-import-test-") as tmp:
        test_layouts(tmp, hu, spacing, opts)
        test_resampled(tmp, hu, spacing, opts)
        test_bad_series(tmp, hu, spacing, opts)
        test_errors(tmp, opts)
        test_raw_and_max_size(tmp, hu, opts)
        test_render_equal(tmp, opts)
    finish()


if __name__ == "__main__":
    main()
