"""test_render_cli.py — tavok-render from the outside: images of the asked size in every mode
this build renders, preview against final, --set, option order, the camera options, --time and
--bench output, --occlusion, and every error path (status 2, one message, no file).

    python3 test_render_cli.py --render build/tavok-render --build build

Needs no display. Volumes: small hand-made .dat files whose pictures are known in advance, and
the phantom head written by make-phantom (skipped with a message when that tool is missing).
Standard library only.
"""
import argparse
import os
import re
import struct
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from testlib import check, finish, png_rgba_rows, shared_data, write_dat  # noqa: E402


def read_png(path):
    """(width, height, rows of 0xRRGGBBAA) of an image tavok-render wrote, with any filters."""
    return png_rgba_rows(path, filters=(0, 1, 2, 3, 4))


def run(args, timeout=120):
    p = subprocess.run([RENDER] + args, capture_output=True, text=True, timeout=timeout)
    return p.returncode, p.stdout, p.stderr


def expect_error(args, message, what):
    """Status 2, the message on standard error, no output file."""
    out = os.path.join(TMP, "error.png")
    if os.path.exists(out):
        os.remove(out)
    status, _, err = run(args + (["-o", out] if "-o" not in args else []))
    ok = check(status == 2, "%s: exit status 2 (got %d)" % (what, status))
    ok &= check(message in err, "%s: says %r (got %r)" % (what, message, err.strip()[:200]))
    ok &= check(not os.path.exists(out), "%s: no file written" % what)
    check(len(err.strip().splitlines()) == 1, "%s: one line of message" % what)
    return ok


MODES = ["slices", "cuberille", "firsthit", "mip", "avg", "rbs", "ics"]


def available_modes(volume):
    """The modes of this build: the others refuse with 'not available yet' and write nothing."""
    found = []
    for mode in MODES:
        out = os.path.join(TMP, "probe-%s.png" % mode)
        status, _, err = run([volume, "--mode", mode, "--size", "8x8", "-o", out])
        if status == 0:
            found.append(mode)
        else:
            check(status == 2 and "not available yet" in err and not os.path.exists(out),
                  "mode %s is refused cleanly while it is not built" % mode)
    return found


def test_sizes_and_modes(volume, modes):
    for mode in modes:
        for w, h in [(97, 61), (13, 29)]:
            out = os.path.join(TMP, "%s-%dx%d.png" % (mode, w, h))
            status, _, err = run([volume, "--mode", mode, "--size", "%dx%d" % (w, h), "-o", out])
            check(status == 0, "%s %dx%d: status 0 (%s)" % (mode, w, h, err.strip()[:200]))
            if not os.path.exists(out):
                check(False, "%s %dx%d: file written" % (mode, w, h))
                continue
            pw, ph, rows = read_png(out)
            check((pw, ph) == (w, h), "%s %dx%d: PNG is %dx%d" % (mode, w, h, pw, ph))
            check(os.path.getsize(out) < 63 + h * (4 * w + 6), "%s: compressed, smaller than stored" % mode)
            check(all(p & 0xff == 0xff for row in rows for p in row), "%s: alpha 255" % mode)
    out = os.path.join(TMP, "default-size.png")
    status, _, _ = run([volume, "--mode", modes[0], "-o", out])
    if check(status == 0, "default size renders"):
        w, h, _ = read_png(out)
        check((w, h) == (1024, 1024), "default size is 1024x1024 (got %dx%d)" % (w, h))


def lit_pixels(rows):
    return [p >> 8 for row in rows for p in row if p >> 8]


def test_block_volume(modes):
    """A 13 x 11 x 9 block of density 4095 in a .dat volume (margin of 2 around it, so the grid
    is 17 x 15 x 13). In cuberille with the eye outside looking at the centre, every ray that
    meets the block stops at its first voxel: opacity 1.0, colour_lut 0xffffff; rays that miss
    stay black. So the image is white where the block is and black elsewhere."""
    if "cuberille" not in modes:
        print("skipped: block volume (cuberille not built yet)")
        return
    vol = write_dat(os.path.join(TMP, "block.dat"), (13, 11, 9), lambda x, y, z: 4095)
    out = os.path.join(TMP, "block.png")
    # Grid centre (8.5, 7.5, 6.5); the eye 40 voxels in front of it along -z, looking at it.
    status, _, err = run([vol, "--size", "41x31", "--eye", "8.5,7.5,-40",
                          "--look-at", "8.5,7.5,6.5", "--up", "0,1,0", "-o", out])
    if not check(status == 0, "block volume renders (%s)" % err.strip()[:200]):
        return
    w, h, rows = read_png(out)
    check(rows[h // 2][w // 2] == 0xffffffff, "block: centre pixel white (0x%08x)" % rows[h // 2][w // 2])
    check(rows[0][0] == 0x000000ff, "block: corner pixel black (0x%08x)" % rows[0][0])
    colours = set(p for row in rows for p in row)
    check(colours <= {0xffffffff, 0x000000ff}, "block: only white and black (%d colours)" % len(colours))
    # Looking away from the block nothing is hit.
    status, _, _ = run([vol, "--size", "41x31", "--eye", "8.5,7.5,-40",
                        "--forward", "0,0,-1", "--up", "0,1,0", "-o", out])
    if check(status == 0, "block, looking away, renders"):
        _, _, rows = read_png(out)
        check(not lit_pixels(rows), "block, looking away: all black")
    # The end node at 4095 set to opacity 0.1 rewrites the ramp from 0 to 4095 below the hit
    # band of 0.2: the block is no longer seen.
    view = [vol, "--size", "41x31", "--eye", "8.5,7.5,-40", "--look-at", "8.5,7.5,6.5"]
    status, _, _ = run(view + ["--opacity", "4095=0.1", "-o", out])
    if check(status == 0, "block with --opacity 4095=0.1 renders"):
        _, _, rows = read_png(out)
        check(not lit_pixels(rows), "--opacity 4095=0.1: nothing reaches opacity 0.2, all black")
    # A node at 4095 that stays opaque with a colour: the block takes the node's colour word.
    status, _, _ = run(view + ["--color", "4095=123456", "-o", out])
    if check(status == 0, "block with --color 4095=123456 renders"):
        _, _, rows = read_png(out)
        check(rows[h // 2][w // 2] == 0x123456ff, "--color 4095=123456: the block is 0x123456")
    # Blur Data smooths the block's faces (the margin itself stays 0): a voxel of the front
    # face has 18 of its 27 neighbours in the block, 18 * 4095 / 27 = 2730, opacity 2/3, and
    # the grey ramp gives it 2/3 of 255 = 170.
    a = os.path.join(TMP, "blur0.png")
    run(view + ["-o", a])
    status, _, err = run(view + ["--blur", "1", "-o", out])
    if check(status == 0, "--blur 1 renders (%s)" % err.strip()[:120]):
        _, _, r0 = read_png(a)
        _, _, r1 = read_png(out)
        check(r0 != r1, "--blur 1 changes the block's picture")
        c = r1[h // 2][w // 2] >> 8
        check(c == 0xaaaaaa, "--blur 1: the centre shows the blurred face, grey 0xaaaaaa (0x%06x)" % c)
        status, _, _ = run(view + ["--blur", "0", "-o", out])
        check(status == 0 and open(a, "rb").read() == open(out, "rb").read(), "--blur 0 changes nothing")
    # With light_model 2 the hit colour is the occlusion byte, which a load fills with 0x80.
    status, _, _ = run([vol, "--size", "41x31", "--eye", "8.5,7.5,-40", "--look-at", "8.5,7.5,6.5",
                        "--set", "light_model=2", "-o", out])
    if check(status == 0, "block with light_model=2 renders"):
        _, _, rows = read_png(out)
        colours = set(p for row in rows for p in row)
        check(colours == {0x808080ff, 0x000000ff}, "--set light_model=2: grey 0x808080 where white was")


def test_nodes(modes):
    """--color and --opacity on a hand-made block of density 2000 (13 x 11 x 9 samples, so a
    17 x 15 x 13 grid with its empty margin of 2). The slice view's centre pixel lies inside
    the block and shows color_lut[2000] unmixed, since all its neighbours have the same colour;
    the margin shows color_lut[0]."""
    if "slices" not in modes:
        print("skipped: node options (slices not built yet)")
        return
    vol = write_dat(os.path.join(TMP, "block2000.dat"), (13, 11, 9), lambda x, y, z: 2000)
    out = os.path.join(TMP, "nodes.png")

    def centre(*args):
        status, _, err = run([vol, "--mode", "slices", "--size", "64x64", "-o", out] + list(args))
        if not check(status == 0, "slices %s renders (%s)" % (" ".join(args), err.strip()[:120])):
            return None, None
        _, _, rows = read_png(out)
        return rows[32][32] >> 8, set(p >> 8 for row in rows for p in row)

    # The grey ramp: opacity 2000 / 4095 = 0.4884..., times 255 truncated = 124.
    c, _ = centre()
    check(c == 0x7c7c7c, "no nodes: grey 0x7c7c7c at density 2000 (0x%06x)" % (c or 0))
    c, _ = centre("--color", "2000=ff0000")
    check(c == 0xff0000, "--color 2000=ff0000: the node's colour, exactly (0x%06x)" % (c or 0))
    c, _ = centre("--color", "2000=ff0000", "--color", "2000=0000ff")
    check(c == 0x0000ff, "two --color at one density: the later wins (0x%06x)" % (c or 0))
    # A node elsewhere rewrites only its two segments, which here reach density 2000: between
    # 0 (black) and a white node at 1000 and beyond to 4095 (white) everything is white.
    c, _ = centre("--color", "1000=ffffff")
    check(c == 0xffffff, "--color 1000=ffffff: density 2000 is white (0x%06x)" % (c or 0))
    # A node at 3000 rewrites the segment from 0 to 3000 as one ramp from black to the node's
    # colour: going down from 3000, 1000 steps of -255 / 3000 leave 170 of red at 2000 (the
    # single-precision sum may land just below, so 169 passes too).
    c, _ = centre("--color", "3000=ff0000")
    check(c is not None and c & 0xffff == 0 and (c >> 16) in (169, 170),
          "--color 3000=ff0000: density 2000 is two thirds of the way to red (0x%06x)" % (c or 0))
    # Position 0 recolours the first node: the empty margin turns blue.
    _, colours = centre("--color", "0=0000ff")
    check(colours is not None and 0x0000ff in colours, "--color 0=0000ff: the margin is blue")
    c, _ = centre("--color", "0=0000ff")
    check(c not in (None, 0x7c7c7c), "--color 0=0000ff rewrites the ramp up to white at 4095")


def test_preview_against_final(volume, modes):
    for mode in modes:
        a, b = os.path.join(TMP, "final.png"), os.path.join(TMP, "preview.png")
        common = [volume, "--mode", mode, "--size", "160x128"]
        s1, _, _ = run(common + ["-o", a])
        s2, _, _ = run(common + ["--preview", "-o", b])
        if not check(s1 == 0 and s2 == 0, "%s: final and preview render" % mode):
            continue
        same = open(a, "rb").read() == open(b, "rb").read()
        if mode == "slices":
            check(same, "slices: --preview gives the same image (one pass only)")
        else:
            check(not same, "%s: --preview differs from the final image" % mode)


def test_set(volume, modes):
    mode = "cuberille" if "cuberille" in modes else modes[0]
    # An oblique view: light model 1 shades y and z faces, which a view along x hardly shows.
    base = [volume, "--mode", mode, "--size", "64x48", "--eye", "-60,-30,-20", "--look-at", "48,48,40"]
    a, b = os.path.join(TMP, "set-a.png"), os.path.join(TMP, "set-b.png")
    run(base + ["-o", a])
    # render_mode through --set reaches the same image as --mode.
    code = {"slices": 12, "cuberille": 0, "firsthit": 2, "mip": 4, "avg": 6, "rbs": 8, "ics": 10}
    for m in modes:
        run([volume, "--mode", m, "--size", "64x48", "-o", a])
        status, _, _ = run([volume, "--set", "render_mode=%d" % code[m], "--size", "64x48", "-o", b])
        check(status == 0 and open(a, "rb").read() == open(b, "rb").read(),
              "--set render_mode=%d gives the image of --mode %s" % (code[m], m))
    if mode == "cuberille":
        run(base + ["-o", a])
        status, _, _ = run(base + ["--set", "light_model=1", "-o", b])
        check(status == 0 and open(a, "rb").read() != open(b, "rb").read(),
              "--set light_model=1 changes the cuberille image")
        status, _, _ = run(base + ["--set", "max_ray_steps=1", "-o", b])
        if check(status == 0, "--set max_ray_steps=1 renders"):
            _, _, rows = read_png(b)
            check(not lit_pixels(rows), "--set max_ray_steps=1: rays end before the head")
        # Cuberille does not look at interp_mode: its final is the same in all three.
        run(base + ["-o", a])
        for interp in ("bilinear", "trilinear"):
            status, _, _ = run(base + ["--interp", interp, "-o", b])
            check(status == 0 and open(a, "rb").read() == open(b, "rb").read(),
                  "--interp %s leaves the cuberille image as it is" % interp)
        # Vector, element and colour syntax are accepted.
        for s in ["light_dir=0,0,-1", "light_dir[1]=0.5", "surface_on[3]=1", "edge_color=ff8800",
                  "edge_color=#00ff00", "refine_tolerance=255", "sample_stepsize=0.25"]:
            status, _, err = run(base + ["--set", s, "-o", b])
            check(status == 0, "--set %s is accepted (%s)" % (s, err.strip()[:120]))
    for s, what in [("no_such_setting=1", "unknown setting"), ("light_dirx=1", "unknown setting"),
                    ("max_ray_steps=-1", "bad value"), ("max_ray_steps=1.5", "bad value"),
                    ("refine_tolerance=256", "bad value"), ("light_model=", "bad value"),
                    ("light_dir=1,2", "bad value"), ("edge_color=1234567", "bad value"),
                    ("edge_color=zz", "bad value"), ("surface_on=1", "one element at a time"),
                    ("surface_on[4]=1", "bad index"), ("render_mode[0]=1", "has no element"),
                    ("light_ambient=nan", "bad value"), ("max_ray_steps", "NAME=VALUE")]:
        ok = expect_error(base + ["--set", s], what, "--set %s" % s)
        if ok and what != "NAME=VALUE":
            _, _, err = run(base + ["--set", s, "-o", b])
            check("valid names:" in err and "light_dir=X,Y,Z" in err and "surface_on[0-3]" in err,
                  "--set %s: the message lists the valid names" % s)


def test_option_order(volume, modes):
    mode = "cuberille" if "cuberille" in modes else modes[0]
    a, b, c = (os.path.join(TMP, n) for n in ("order-a.png", "order-b.png", "order-c.png"))
    opts = [["--mode", mode], ["--size", "71x53"], ["--set", "light_model=1"],
            ["--set", "refine_tolerance=4"], ["--eye", "30,40,50"], ["--look-at", "60,64,50"],
            ["--up", "0,0,1"], ["--interp", "bilinear"]]
    flat = lambda groups: [x for g in groups for x in g]
    s1, _, e1 = run([volume, "-o", a] + flat(opts))
    s2, _, e2 = run(flat(reversed(opts)) + ["-o", b, volume])
    s3, _, e3 = run(flat(opts[3:]) + [volume] + flat(opts[:3]) + ["--output=" + c])
    if check(s1 == 0 and s2 == 0 and s3 == 0, "three orders render (%s)" % (e1 + e2 + e3).strip()[:200]):
        da, db, dc = (open(p, "rb").read() for p in (a, b, c))
        check(da == db == dc, "options in any order give the same file")


def test_camera(volume, modes):
    mode = "cuberille" if "cuberille" in modes else None
    if not mode:
        print("skipped: camera options (cuberille not built yet)")
        return
    a, b = os.path.join(TMP, "cam-a.png"), os.path.join(TMP, "cam-b.png")
    base = [volume, "--size", "64x48"]
    # --look-at P from E is --forward P - E (integers, so the difference is exact).
    run(base + ["--eye", "-40,30,20", "--look-at", "30,32,25", "-o", a])
    run(base + ["--eye", "-40,30,20", "--forward", "70,2,5", "-o", b])
    check(open(a, "rb").read() == open(b, "rb").read(), "--look-at equals --forward toward the point")
    # The frame is rebuilt from normalised vectors: a longer forward is the same view.
    run(base + ["--eye", "-40,30,20", "--forward", "140,4,10", "-o", b])
    check(open(a, "rb").read() == open(b, "rb").read(), "--forward is normalised")
    # With no camera option the default view is the one after loading; --eye alone moves.
    run(base + ["-o", a])
    run(base + ["--eye", "-200,-200,-200", "-o", b])
    check(open(a, "rb").read() != open(b, "rb").read(), "--eye alone moves the eye")
    # Flipping up turns the image upside down (same eye and direction).
    run(base + ["--eye", "-60,64,40", "--forward", "1,0,0", "--up", "0,0,1", "-o", a])
    run(base + ["--eye", "-60,64,40", "--forward", "1,0,0", "--up", "0,0,-1", "-o", b])
    _, _, ra = read_png(a)
    _, _, rb = read_png(b)
    check(lit_pixels(ra) and ra != rb, "--up 0,0,-1 changes the view")
    # Rows turn around and so do columns (istr = up x ifor flips with up). Pixel x of a row
    # looks along (x - W/2) / short side, so pixel x of one image is pixel W - x of the other
    # (and the same for rows); row and column 0 have no partner. The directions are summed
    # pixel by pixel in floats, so a ray grazing a voxel edge may go either way: allow 1%.
    H, W = len(ra), len(ra[0])
    diff = sum(1 for y in range(1, H) for x in range(1, W) if rb[y][x] != ra[H - y][W - x])
    check(diff <= W * H // 100, "--up reversed gives the image turned by 180 degrees "
          "(%d pixels differ)" % diff)


def test_projections(volume, modes):
    """mip and avg in every interpolation, on the phantom and on the block of 4095 (13 x 11 x 9
    samples with the empty margin of 2). With the grey ramp density 4095 has opacity 1.0, at
    least 0.975: a mip ray ends at its first voxel of the block and shows white, in every
    interpolation. The average of the same rays counts one sample more than it saw, so it stays
    below white, and it darkens toward the block's rim where the rays are short."""
    projections = [m for m in ("mip", "avg") if m in modes]
    if not projections:
        print("skipped: projections (mip and avg not built yet)")
        return
    vol = write_dat(os.path.join(TMP, "block4095.dat"), (13, 11, 9), lambda x, y, z: 4095)
    view = [vol, "--size", "41x31", "--eye", "8.5,7.5,-40", "--look-at", "8.5,7.5,6.5", "--up", "0,1,0"]
    out = os.path.join(TMP, "projection.png")
    for mode in projections:
        for interp in ("none", "bilinear", "trilinear"):
            what = "%s --interp %s" % (mode, interp)
            status, _, err = run(view + ["--mode", mode, "--interp", interp, "-o", out])
            if not check(status == 0, "%s: block renders (%s)" % (what, err.strip()[:200])):
                continue
            w, h, rows = read_png(out)
            c = rows[h // 2][w // 2] >> 8
            if mode == "mip":
                check(c == 0xffffff, "%s: the block's centre is white (0x%06x)" % (what, c))
            else:
                check(0 < c < 0xffffff and c & 0xff == c >> 16, "%s: the block's centre is a grey "
                      "below white (0x%06x)" % (what, c))
            check(rows[0][0] >> 8 == 0, "%s: a ray that misses the block is black" % what)
            # The phantom (96 x 96 x 80) from the front.
            status, _, err = run([volume, "--mode", mode, "--interp", interp, "--size", "80x64",
                                  "--eye", "48,200,40", "--look-at", "48,48,40", "--up", "0,0,-1", "-o", out])
            if check(status == 0, "%s: phantom renders (%s)" % (what, err.strip()[:200])):
                _, _, rows = read_png(out)
                check(len(lit_pixels(rows)) > 80 * 64 // 8, "%s: the phantom shows" % what)
            line = r"^%s: median \d+\.\d{3} ms, min \d+\.\d{3} ms, max \d+\.\d{3} ms, (\d+) rays/s$"
            status, text, err = run([volume, "--mode", mode, "--interp", interp, "--size", "80x64",
                                     "--bench", "2"])
            if check(status == 0, "%s: --bench runs (%s)" % (what, err.strip()[:200])):
                check(re.search(line % "preview", text, re.M) is not None and
                      re.search(line % "final", text, re.M) is not None,
                      "%s: --bench prints the preview and the final" % what)
        # faint_whisps through --set: the mip block at opacity 1 comes out 254 for 255.
        status, _, _ = run(view + ["--mode", mode, "--set", "faint_whisps=1", "-o", out])
        if check(status == 0, "%s with faint_whisps renders" % mode):
            w, h, rows = read_png(out)
            if mode == "mip":
                check(rows[h // 2][w // 2] >> 8 == 0xfefefe, "mip, faint_whisps: white 255 -> 254")


def test_time_and_bench(volume, modes):
    mode = "cuberille" if "cuberille" in modes else modes[0]
    out = os.path.join(TMP, "bench.png")
    status, text, err = run([volume, "--mode", mode, "--size", "64x48", "--time", "-o", out])
    if check(status == 0, "--time renders (%s)" % err.strip()[:200]):
        check(re.search(r"^preview: \d+\.\d{3} ms$", text, re.M) is not None, "--time prints the preview time")
        if mode == "slices":
            check(re.search(r"^final: none$", text, re.M) is not None, "--time: slices have no final")
        else:
            check(re.search(r"^final: \d+\.\d{3} ms$", text, re.M) is not None, "--time prints the final time")
    line = r"^%s: median (\d+\.\d{3}) ms, min (\d+\.\d{3}) ms, max (\d+\.\d{3}) ms, (\d+) rays/s$"
    status, text, err = run([volume, "--mode", mode, "--size", "64x48", "--bench", "3"])
    if check(status == 0, "--bench without -o runs (%s)" % err.strip()[:200]):
        m = re.search(line % "preview", text, re.M)
        if check(m is not None, "--bench prints the preview line"):
            lo, med, hi = float(m.group(2)), float(m.group(1)), float(m.group(3))
            check(lo <= med <= hi, "--bench: min <= median <= max")
            check(int(m.group(4)) > 0, "--bench: rays/s above 0")
        if mode != "slices":
            check(re.search(line % "final", text, re.M) is not None, "--bench prints the final line")
    status, _, _ = run([volume, "--mode", mode, "--size", "64x48", "--bench", "2", "-o", out])
    check(status == 0 and read_png(out)[:2] == (64, 48), "--bench with -o writes the image")


def test_occlusion(volume, modes):
    """--occlusion on the block volume, seen in light model 2, where a hit shows its occlusion
    byte as grey. A ray from voxel (x, y, z) stands in trunc(p + 0.5) from p = (x + 0.5, ...):
    with the default light, steps of (-0.495, 0, 0.495), it runs along the row y + 1 and goes
    into the block from the front face z = 2. So in the hard model the front face is black (0)
    but for its last row, y = 12, whose rays run through the empty margin row y = 13 (255);
    with an isovalue above every density nothing casts a shadow and the face is all white."""
    if "cuberille" not in modes:
        print("skipped: occlusion (cuberille not built yet)")
        return
    vol = write_dat(os.path.join(TMP, "block.dat"), (13, 11, 9), lambda x, y, z: 4095)
    view = [vol, "--size", "41x31", "--eye", "8.5,7.5,-40", "--look-at", "8.5,7.5,6.5", "--up", "0,1,0",
            "--set", "light_model=2"]
    out = os.path.join(TMP, "occlusion.png")

    def colours(args):
        status, text, err = run(view + args + ["-o", out])
        if not check(status == 0, "%s renders (%s)" % (" ".join(args), err.strip()[:200])):
            return None, text
        _, _, rows = read_png(out)
        counts = {}
        for row in rows:
            for p in row:
                counts[p] = counts.get(p, 0) + 1
        return counts, text

    neutral, _ = colours([])
    hard, text = colours(["--occlusion", "hard"])
    if neutral and hard:
        grey = neutral.get(0x808080ff, 0)
        check(grey > 0, "without --occlusion the block shows the load's grey 0x808080")
        check(set(hard) == {0xffffffff, 0x000000ff}, "--occlusion hard: only white and black")
        white = hard.get(0xffffffff, 0)
        check(0 < white < grey // 5, "--occlusion hard: one edge of the face lit (%d of %d)" % (white, grey))
        for line in ["calculating occlusion", "started shadow-calc thread", "set thread-start call",
                     "finished shadow-calc thread in ~"]:
            check(line in text, "--occlusion logs %r" % line)
    none, _ = colours(["--set", "isovalue=4096", "--occlusion", "hard"])
    if neutral and none:
        check(none.get(0xffffffff, 0) == neutral.get(0x808080ff, 0),
              "--occlusion hard with nothing at the isovalue: the whole face white")
    # The options apply in their fixed order: the isovalue is set before the calculation.
    later, _ = colours(["--occlusion", "hard", "--set", "isovalue=4096"])
    check(later == none, "--occlusion uses the --set given after it on the command line")
    soft, _ = colours(["--occlusion", "soft"])
    if soft:
        # t = 1.0 * 1.5 > 1 on the first block voxel met: the soft model is as dark there.
        check(soft == hard, "--occlusion soft on an opaque block: the same as hard")
    # Soft shadows of the phantom have greys between 0 and 255; the image is the same each time.
    a, b = os.path.join(TMP, "soft-a.png"), os.path.join(TMP, "soft-b.png")
    base = [volume, "--size", "64x48", "--set", "light_model=2", "--occlusion", "soft"]
    run(base + ["-o", a])
    status, _, _ = run(base + ["-o", b])
    if check(status == 0, "phantom with --occlusion soft renders"):
        check(open(a, "rb").read() == open(b, "rb").read(), "--occlusion soft: the same image twice")
        _, _, rows = read_png(a)
        greys = set((p >> 8) & 0xff for row in rows for p in row if p >> 8)
        check(len(greys - {0, 255}) > 0, "--occlusion soft: greys between 0 and 255 (%d kinds)" % len(greys))
    # --bench with --occlusion times the calculation too.
    status, text, err = run([volume, "--size", "32x24", "--occlusion", "hard", "--bench", "2"])
    if check(status == 0, "--bench 2 --occlusion hard runs (%s)" % err.strip()[:200]):
        m = re.search(r"^occlusion \(hard\): median (\d+\.\d{3}) ms, min (\d+\.\d{3}) ms, max (\d+\.\d{3}) ms$",
                      text, re.M)
        if check(m is not None, "--bench prints the occlusion line"):
            check(float(m.group(2)) <= float(m.group(1)) <= float(m.group(3)), "occlusion: min <= median <= max")
        check(text.count("calculating occlusion") == 1, "--bench: only the first calculation logs")


def test_bench_baseline(volume, modes):
    """--bench of a ray-casting mode other than cuberille times the cuberille final of the same
    view beside it and prints the ratio of the medians; the image is still the mode's own."""
    if "firsthit" not in modes or "cuberille" not in modes:
        print("skipped: the bench baseline (firsthit or cuberille is not built)")
        return
    line = r"^%s: median (\d+\.\d{3}) ms, min (\d+\.\d{3}) ms, max (\d+\.\d{3}) ms, (\d+) rays/s$"
    out = os.path.join(TMP, "bench_firsthit.png")
    plain = os.path.join(TMP, "plain_firsthit.png")
    args = [volume, "--mode", "firsthit", "--interp", "bilinear", "--set", "isovalue=2000", "--size", "64x48"]
    status, text, err = run(args + ["--bench", "3", "-o", out])
    if check(status == 0, "--bench of firsthit runs (%s)" % err.strip()[:200]):
        final = re.search(line % "final", text, re.M)
        cuberille = re.search(line % "cuberille final", text, re.M)
        ratio = re.search(r"^final / cuberille final: (\d+\.\d{2})$", text, re.M)
        check(final is not None and cuberille is not None and ratio is not None,
              "--bench of firsthit prints its final, the cuberille final and their ratio")
        # A final casts one ray a pixel, the cuberille's as well here.
        if final and cuberille:
            check(int(final.group(4)) > 0 and int(cuberille.group(4)) > 0, "--bench: both finals count rays")
        status, _, _ = run(args + ["-o", plain])
        check(status == 0 and read_png(out) == read_png(plain), "--bench leaves the mode's own image")
    status, text, _ = run([volume, "--mode", "cuberille", "--size", "64x48", "--bench", "2"])
    check(status == 0 and "cuberille final:" not in text, "--bench of cuberille has no baseline of itself")


def test_errors(volume, modes):
    short = os.path.join(TMP, "short.dat")
    open(short, "wb").write(struct.pack("<3H", 9, 9, 9) + b"\0\0" * 10)
    cases = [
        ([volume, "--frob"], "unknown option '--frob'", "unknown option"),
        ([volume, "-x"], "unknown option '-x'", "unknown short option"),
        ([os.path.join(TMP, "missing.dat")], "can't read", "missing volume file"),
        ([TMP], "can't read %s: it holds no DICOM files" % TMP, "a folder without a DICOM series as volume"),
        ([volume, volume], "only one volume", "two volumes"),
        (["--size", "10x10"], "no volume given", "no volume"),
        ([volume, "--size", "0x10"], "from 1 to 16383", "width 0"),
        ([volume, "--size", "10x0"], "from 1 to 16383", "height 0"),
        ([volume, "--size", "16384x10"], "from 1 to 16383", "width 16384"),
        ([volume, "--size", "10x99999"], "from 1 to 16383", "height 99999"),
        ([volume, "--size", "10xab"], "needs WxH", "bad size"),
        ([volume, "--size", "10x10x"], "needs WxH", "size with trailing text"),
        ([volume, "--size", "-5x10"], "needs WxH", "negative size"),
        ([volume, "--size", "5x 10"], "needs WxH", "size with a space"),
        ([volume, "--size", "99999999999999999999x10"], "needs WxH", "size past the long range"),
        (["-o", os.path.join(TMP, "error.png"), volume, "--size"], "--size needs a value",
         "option without value"),
        ([volume, "--blur", "two"], "--blur two", "bad blur count"),
        ([volume, "--bench", "0"], "--bench 0", "bench 0"),
        ([volume, "--bench", "1e3"], "--bench 1e3", "bench not an integer"),
        ([volume, "--eye", "1,2"], "three numbers", "eye with two numbers"),
        ([volume, "--eye", "1,2,x"], "three numbers", "eye with a word"),
        ([volume, "--eye", "1,2,3", "--eye", "1,2,3"], "given twice", "eye twice"),
        ([volume, "--up", "1,2,3,4"], "three numbers", "up with four numbers"),
        ([volume, "--forward", "1,0,0", "--look-at", "1,2,3"], "exclude each other", "forward and look-at"),
        ([volume, "--mode", "wire"], "unknown mode", "unknown mode"),
        ([volume, "--interp", "cubic"], "none, bilinear or trilinear", "unknown interp"),
        ([volume, "--occlusion", "medium"], "soft or hard", "unknown occlusion"),
        ([volume, "--cut", "plane:1,0,0"], "four numbers", "plane with three numbers"),
        ([volume, "--cut", "sphere:1,2,3,4,middle"], "R2,inside or sphere", "sphere side"),
        ([volume, "--cut", "cube:1"], "plane:NX,NY,NZ,D or sphere", "unknown cut"),
        ([volume, "--color", "5000=ff0000"], "from 0 to 4095", "colour position out of range"),
        ([volume, "--color", "100=red"], "bad colour", "colour not hex"),
        ([volume, "--opacity", "100=1.5"], "from 0 to 1", "opacity above 1"),
        ([volume, "--opacity", "100"], "POS=VALUE", "opacity without value"),
        ([volume, "--preview=yes"], "takes no value", "flag with value"),
        ([volume, "--set", "render_mode=3"], "not a render mode", "render_mode 3"),
    ]
    for args, message, what in cases:
        expect_error(args, message, what)
    # Errors found after the load need a mode that renders.
    if modes:
        m = ["--mode", modes[0]]
        for args, message, what in [
                ([volume, "--forward", "0,0,0"], "too short", "zero forward"),
                ([volume, "--eye", "5,5,5", "--look-at", "5,5,5"], "is the eye position", "look-at the eye"),
                ([volume, "--forward", "0,0,1", "--up", "0,0,2"], "parallel", "up along forward"),
                ([short], "tavok-render: file %s is too short: 9 x 9 x 9 needs 1464 bytes, it has 26" % short,
                 "a file the loader refuses"),
                ([volume, "--set", "light_dir=0,0,0", "--occlusion", "hard"], "too short to move a ray",
                 "occlusion with a light step of 0")]:
            expect_error(args + m, message, what)
        test_refused_volumes(m)
    # Output problems: a missing folder, a folder, the volume itself; and -o missing.
    expect_error([volume, "-o", os.path.join(TMP, "no", "such", "x.png")], "does not exist", "output folder missing")
    expect_error([volume, "-o", TMP], "it is a folder", "output is a folder")
    before = open(volume, "rb").read()
    status, _, err = run([volume, "-o", volume])
    check(status == 2 and "is the volume" in err, "output onto the volume is refused")
    check(open(volume, "rb").read() == before, "the volume is untouched")
    status, _, err = run([volume])
    check(status == 2 and "no output file" in err, "no -o without --bench is an error")
    # Options whose parts are not built yet are refused the same way, never faked.
    for args, what in [(["--cut", "plane:1,0,0,-10"], "cut"),
                       (["--blur", "1"], "blur"), (["--color", "1000=ff0000"], "colour node"),
                       (["--opacity", "1000=0.5"], "opacity node")]:
        out = os.path.join(TMP, "notyet.png")
        if os.path.exists(out):
            os.remove(out)
        status, _, err = run([volume] + args + (["--mode", modes[0]] if modes else []) + ["-o", out])
        if status == 2:
            check("not available yet" in err and not os.path.exists(out),
                  "%s: refused as not available yet, no file" % what)
        else:
            check(status == 0 and os.path.exists(out), "%s: renders" % what)


def test_cuts(modes):
    """--cut erases the grid as "Apply Cut" does, before the view is rendered. The block of
    test_block_volume (grid 17 x 15 x 13, data at 2..14, 2..12, 2..10), seen from the front."""
    if "cuberille" not in modes:
        print("skipped: cuts (cuberille not built yet)")
        return
    vol = write_dat(os.path.join(TMP, "cut-block.dat"), (13, 11, 9), lambda x, y, z: 4095)
    view = [vol, "--size", "41x31", "--eye", "8.5,7.5,-40", "--look-at", "8.5,7.5,6.5", "--up", "0,1,0"]

    def white(args, name):
        out = os.path.join(TMP, name)
        status, _, err = run(view + args + ["-o", out])
        if not check(status == 0, "%s renders (%s)" % (name, err.strip()[:200])):
            return None
        w, _, rows = read_png(out)
        return [(x, y) for y, row in enumerate(rows) for x, p in enumerate(row) if p == 0xffffffff]

    whole = white([], "uncut.png")
    # The plane x = 8.5 with its normal along +x: x + 0.5 < 8.5 goes, x = 2..7 of the block's
    # 2..14; what stays lies on one side of the middle column.
    half = white(["--cut", "plane:1,0,0,-8.5"], "plane-cut.png")
    if whole and half is not None:
        ratio = len(half) / len(whole)
        check(0.4 < ratio < 0.7, "plane cut keeps 7 of 13 columns (%.2f of the white pixels)" % ratio)
        xs = [x for x, _ in half]
        check(xs and (min(xs) >= 19 or max(xs) <= 21), "plane cut: what stays is on one side (%d..%d)"
              % (min(xs) if xs else -1, max(xs) if xs else -1))
    # Outside a sphere of radius 3 around the centre everything goes: a disc stays in the middle.
    ball = white(["--cut", "sphere:8.5,7.5,6.5,9,outside"], "sphere-cut.png")
    if whole and ball is not None:
        check(0 < len(ball) < len(whole) / 3, "sphere cut keeps a disc (%d of %d pixels)" % (len(ball), len(whole)))
        check((20, 15) in ball, "sphere cut: the centre stays")
        corners = [min(whole), max(whole)]
        check(not any(c in ball for c in corners), "sphere cut: the block's corners are gone")
    # Two cuts add up: inside a sphere that holds the whole grid, after the plane, nothing stays.
    gone = white(["--cut", "plane:1,0,0,-8.5", "--cut", "sphere:8.5,7.5,6.5,1000,inside"], "both.png")
    if gone is not None:
        check(not gone, "plane and then a sphere holding everything: all black")


def test_abstract(volume):
    """--abstract draws the abstract view: from inside the box its back faces in green, the
    cutting sphere in red in front of them; every second pixel of every second line, copied to
    its neighbours, so odd columns repeat the even ones before them, and odd lines too."""
    out = os.path.join(TMP, "abstract.png")
    # The phantom is 96 x 96 x 80: the eye near one corner, a sphere of radius 12 in the middle.
    view = [volume, "--abstract", "--size", "41x31", "--eye", "10,12,8", "--look-at", "48,48,40",
            "--up", "0,0,-1", "--cut", "sphere:48,48,40,144,inside", "-o", out]
    status, _, err = run(view)
    if not check(status == 0, "--abstract renders (%s)" % err.strip()[:200]):
        return
    w, h, rows = read_png(out)
    check((w, h) == (41, 31), "--abstract: the asked size")
    centre = rows[15][20] >> 8
    check((centre >> 16) > 2 * ((centre >> 8) & 255), "--abstract: the sphere in the middle is red (%06x)" % centre)
    corner = rows[0][0] >> 8
    check(((corner >> 8) & 255) > 2 * (corner >> 16), "--abstract: the box's back faces are green (%06x)" % corner)
    check(all(row[x] == row[x - 1] for row in rows for x in range(1, w, 2)), "--abstract: odd columns repeat")
    check(all(rows[y] == rows[y - 1] for y in range(1, h, 2)), "--abstract: odd lines repeat")
    # With the sphere behind the box's front face, from outside only the box shows.
    status, _, _ = run([volume, "--abstract", "--size", "41x31", "--eye", "48,48,-100", "--look-at", "48,48,40",
                        "--up", "0,1,0", "--cut", "sphere:48,48,40,144,inside", "-o", out])
    if check(status == 0, "--abstract from outside renders"):
        _, _, rows = read_png(out)
        colours = set(p >> 8 for row in rows for p in row if p >> 8)
        check(colours and all(((c >> 8) & 255) > (c >> 16) for c in colours),
              "--abstract from outside: the front face hides the sphere (%d colours)" % len(colours))
    status, text, _ = run([volume, "--abstract", "--size", "512x409", "--bench", "3"])
    check(status == 0 and re.search(r"^abstract: median [0-9.]+ ms", text, re.M) is not None,
          "--abstract --bench times the abstract view")
    expect_error([volume, "--abstract", "--abstract"], "--abstract is given twice", "--abstract twice")


def test_own_voxel_model(modes, build):
    """make-voxel-model writes the project's model as KVX and as VOX: both load, and both give
    the same picture from two sides (the KVX slabs keep the gaps between them empty, so even
    its inside matches)."""
    tool = os.path.join(build, "make-voxel-model")
    if not os.path.exists(tool) or "cuberille" not in modes:
        print("skipped: the project's voxel model (make-voxel-model or cuberille not built)")
        return
    files = {}
    for ending in ("kvx", "vox"):
        files[ending] = os.path.join(TMP, "island." + ending)
        status = subprocess.run([tool, files[ending]], capture_output=True).returncode
        check(status == 0 and os.path.exists(files[ending]), "make-voxel-model writes a .%s file" % ending)
    for name, view in [("above", ["--eye", "92,-14,62", "--look-at", "32,34,10", "--up", "0,0,-1"]),
                       ("below", ["--eye", "32,32,-60", "--look-at", "32,32,20", "--up", "0,1,0"])]:
        images = []
        for ending, path in files.items():
            out = os.path.join(TMP, "island-%s-%s.png" % (ending, name))
            status, _, err = run([path, "--size", "96x72", "--set", "light_model=1"] + view + ["-o", out])
            if not check(status == 0, "island.%s renders from %s (%s)" % (ending, name, err.strip()[:200])):
                return
            images.append(read_png(out)[2])
        check(len(lit_pixels(images[0])) > 1000, "the island is seen from %s" % name)
        check(images[0] == images[1], "island.kvx and island.vox give the same picture from %s" % name)


def f32(x):
    return struct.unpack("<f", struct.pack("<f", x))[0]


def grey_of(d):
    """The grey identity table of a .dat load: o = d * (1 / 4095) in floats, grey = o * 255
    truncated, in all three bytes."""
    o = f32(d * f32(0.00024420026))
    g = int(f32(o * 255.0))
    return g << 16 | g << 8 | g, o


def test_slice_settings(modes):
    """--set reaches the slice view's settings. Three volumes of 9 x 9 x 9 samples (13 x 13 x
    13 with the margin) whose density rises by 250 from plane to plane along one axis, 1000 at
    the first: an axis slice across that axis shows one density wherever it meets the volume,
    so with nearest sampling its picture holds exactly that grey and black."""
    if "slices" not in modes:
        print("skipped: slice settings (slices not built yet)")
        return
    vols = [write_dat(os.path.join(TMP, "ramp-%s.dat" % a), (9, 9, 9),
                      (lambda k: lambda x, y, z: 1000 + 250 * (x, y, z)[k])(k))
            for k, a in enumerate("xyz")]
    out = os.path.join(TMP, "slice.png")

    def colours(vol, *sets, mode="slices"):
        args = [vol, "--mode", mode, "--size", "48x40", "-o", out]
        for s in sets:
            args += ["--set", s]
        status, _, err = run(args)
        if not check(status == 0, "%s renders (%s)" % (" ".join(sets), err.strip()[:200])):
            return None, []
        rows = read_png(out)[2]
        return rows, lit_pixels(rows)

    # slice_kind 0 is XY across z, 1 XZ across y, 2 YZ across x; the index is a grid plane.
    for k, (kind, index) in enumerate([(2, "slice_x"), (1, "slice_y"), (0, "slice_z")]):
        shown = {}
        for plane in (3, 9):
            _, lit = colours(vols[k], "slice_kind=%d" % kind, "%s=%d" % (index, plane), "slice_filter=0",
                             "slice_zoom=20")
            want = grey_of(1000 + 250 * (plane - 2))[0]
            # 9 of the 20 voxels across the picture's 40 lines: about 18 x 17 pixels.
            check(len(lit) > 250 and set(lit) == {want},
                  "%s=%d: the plane's grey %06x only (%d lit, %s)" % (index, plane, want, len(lit),
                                                                     sorted("%06x" % c for c in set(lit))[:4]))
            shown[plane] = lit
        _, lit = colours(vols[k], "slice_kind=%d" % kind, "%s=0" % index, "slice_zoom=20")
        check(not lit, "%s=0: a plane of the margin, all black" % index)
    # The default view (XY through the middle, z = 6, zoom 256) is small and of another grey.
    _, lit = colours(vols[2], "slice_filter=0")
    check(0 < len(lit) < 100 and set(lit) == {grey_of(2000)[0]},
          "the default slice: z = 6, zoom 256, few pixels (%d)" % len(lit))
    # Bilinear filtering blends the volume's edge with the black margin; nearest does not.
    _, lit = colours(vols[2], "slice_z=9", "slice_zoom=20", "slice_filter=1")
    check(len(set(lit)) > 3, "slice_filter=1: the edges blend (%d colours)" % len(set(lit)))
    # The transfer function's opacity weighs each byte: (g * trunc(o * 32767)) >> 15.
    g, o = grey_of(2750)
    a = int(o * 32767.0)
    byte = ((g & 255) * a) >> 15
    _, lit = colours(vols[2], "slice_z=9", "slice_zoom=20", "slice_filter=0", "slice_use_tf=1")
    check(set(lit) == {byte * 0x010101}, "slice_use_tf=1: grey %02x weighed by its opacity to %02x (%s)"
          % (g & 255, byte, sorted("%06x" % c for c in set(lit))[:4]))
    # The arbitrary plane z = 9.5 (normal 0,0,1, d = -9.5) meets grid plane 9, also when the
    # slice is not recentred: its basis is built from the normal either way.
    for recenter in (1, 0):
        for z in (4, 9):
            _, lit = colours(vols[2], "slice_kind=3", "slice_normal=0,0,1", "slice_d=-%d.5" % z,
                             "slice_zoom=20", "slice_recenter=%d" % recenter)
            want = grey_of(1000 + 250 * (z - 2))[0]
            check(len(lit) > 500 and set(lit) == {want},
                  "plane z = %d.5, slice_recenter=%d: grey %06x only (%d lit)" % (z, recenter, want, len(lit)))
    # A plane along x (normal 1,0,0) on the x ramp: d = -5.5 meets grid plane 5.
    _, lit = colours(vols[0], "slice_kind=3", "slice_normal=2,0,0", "slice_d=-5.5", "slice_zoom=20")
    check(len(lit) > 500 and set(lit) == {grey_of(1750)[0]}, "plane x = 5.5 from the normal 2,0,0 made unit")
    # The plane's basis places the camera, as the window's 3D switch looks from there: the
    # cuberille view from the plane z = -240.5 looking along +z sees the volume's z = 2 face.
    if "cuberille" in modes:
        rows, lit = colours(vols[2], "slice_kind=3", "slice_normal=0,0,1", mode="cuberille")
        default_rows, _ = colours(vols[2], mode="cuberille")
        check(lit and rows != default_rows, "slice_kind=3 moves the 3D camera onto the plane's")
        check(set(lit) == {grey_of(1000)[0]}, "... which sees the first plane, grey %06x" % grey_of(1000)[0])
    # Values no widget can give are refused, with the grid's range where it is the bound.
    vol = vols[2]
    expect_error([vol, "--set", "slice_z=13"], "--set slice_z=13: the grid's z runs from 0 to 12", "slice_z=13")
    expect_error([vol, "--set", "slice_x=4294967295"], "the grid's x runs from 0 to 12", "slice_x huge")
    expect_error([vol, "--set", "slice_y=13"], "the grid's y runs from 0 to 12", "slice_y=13")
    expect_error([vol, "--set", "slice_kind=4"], "--set slice_kind=4: the slice kinds are", "slice_kind=4")
    expect_error([vol, "--set", "slice_kind=-1"], "--set slice_kind=-1: the slice kinds are", "slice_kind=-1")
    expect_error([vol, "--set", "slice_zoom=2.5"], "--set slice_zoom=2.5: the zoom runs from 3 to 1024",
                 "slice_zoom=2.5")
    expect_error([vol, "--set", "slice_zoom=1025"], "the zoom runs from 3 to 1024", "slice_zoom=1025")
    status, _, _ = run([vol, "--mode", "slices", "--set", "slice_z=12", "--set", "slice_zoom=3", "--size", "8x8",
                        "-o", out])
    check(status == 0, "slice_z=12 and slice_zoom=3, the ends of their ranges, render")


def test_palette_files(modes):
    """The KVX and VOX files of one model render the same picture from each of the six sides:
    the KVX file stores the surface only, but a first hit sees nothing else. A file the KVX
    loader refuses ends tavok-render with the loader's reason and no image."""
    bad = os.path.join(TMP, "zero.kvx")
    open(bad, "wb").write(b"\0" * 796)  # numbytes 0: no room for a header
    expect_error([bad, "--mode", modes[0]], "tavok-render: kvx file %s: numbytes 0 does not fit" % bad,
                 "a KVX file the loader refuses")
    kvx, vox = shared_data("kvx/vengi-slab6_vox_test.kvx"), shared_data("vox/vengi-slab6_vox_test.vox")
    if not kvx or not vox:
        print("skipped: palette files (no shared data)")
        return
    if "cuberille" not in modes:
        print("skipped: palette pictures (cuberille not built yet)")
        return
    centre = (19.5, 6.5, 21.5)  # the model is 39 x 13 x 43
    for axis, sign in [(a, s) for a in range(3) for s in (-1, 1)]:
        eye = list(centre)
        eye[axis] += sign * 60
        up = "0,0,1" if axis == 1 else "0,1,0"
        view = ["--size", "64x64", "--eye", ",".join(map(str, eye)),
                "--look-at", ",".join(map(str, centre)), "--up", up]
        images = []
        for name, path in [("kvx", kvx), ("vox", vox)]:
            out = os.path.join(TMP, "palette-%s-%d%+d.png" % (name, axis, sign))
            status, _, err = run([path] + view + ["-o", out])
            if not check(status == 0, "%s renders from side %d%+d (%s)" % (name, axis, sign, err.strip()[:200])):
                return
            images.append(read_png(out)[2])
        what = "side %d%+d" % (axis, sign)
        check(len(lit_pixels(images[0])) > 100, "%s: the model is seen (%d pixels)" % (what, len(lit_pixels(images[0]))))
        check(images[0] == images[1], "%s: KVX and VOX give the same picture" % what)


def test_compressed_against_stored(volume, modes):
    """The default output is compressed through zlib; --stored writes the program's own stored
    blocks, as the window's screenshots are. Decoded, both have the same pixels."""
    views = [["--size", "800x600", "--mode", modes[-1]], ["--size", "97x61"], ["--size", "1x1"]]
    if "cuberille" in modes:
        views.append(["--size", "800x600", "--mode", "cuberille", "--set", "light_model=1",
                      "--eye", "50,180,70", "--look-at", "48,48,40", "--up", "0,0,-1"])
    for k, view in enumerate(views):
        small, stored = os.path.join(TMP, "small-%d.png" % k), os.path.join(TMP, "stored-%d.png" % k)
        s1, _, e1 = run([volume] + view + ["-o", small])
        s2, _, e2 = run([volume] + view + ["--stored", "-o", stored])
        if not check(s1 == 0 and s2 == 0, "%s: both writers succeed (%s %s)" % (view, e1.strip(), e2.strip())):
            continue
        w, h, rows = read_png(small)
        sw, sh, srows = png_rgba_rows(stored)  # filter 0 on every row, as the stored writer has it
        check((w, h) == (sw, sh), "%s: the same size" % view)
        check(rows == srows, "%s: the same pixels, alpha 255" % view)
        check(os.path.getsize(stored) == 63 + h * (4 * w + 6), "%s: --stored is the stored writer's size" % view)
        data = open(small, "rb").read()
        check(data[25] == 2, "%s: the compressed image is 8-bit RGB" % view)
        if w * h >= 10000:
            check(os.path.getsize(small) * 5 < os.path.getsize(stored),
                  "%s: compressed %d bytes against %d stored" % (view, os.path.getsize(small), os.path.getsize(stored)))
        print("%s: %d bytes compressed, %d stored" % (" ".join(view), os.path.getsize(small), os.path.getsize(stored)))
    expect_error([volume, "--stored", "--stored"], "--stored is given twice", "--stored twice")
    expect_error([volume, "--stored=yes"], "takes no value", "--stored with a value")


def test_refused_volumes(mode):
    """Every file the loader refuses: its reason on standard error (not only among the load
    lines on standard output), status 2, no file."""
    zero = os.path.join(TMP, "zero.dat")
    open(zero, "wb").write(struct.pack("<3H", 0, 10, 10))
    flat = os.path.join(TMP, "flat.dat")
    open(flat, "wb").write(struct.pack("<3H", 7, 0, 3) + b"\0\0" * 21)
    text = os.path.join(TMP, "notes.txt")
    open(text, "w").write("a text file, not a volume\n")
    over = os.path.join(TMP, "over.dat")
    open(over, "wb").write(struct.pack("<3H", 2, 2, 2) + struct.pack("<8H", 600, 700, 800, 900, 4096, 0, 0, 0))
    pipe = os.path.join(TMP, "pipe.dat")
    os.mkfifo(pipe)
    for args, message, what in [
            ([zero], "tavok-render: file %s holds no samples: its size is 0 x 10 x 10" % zero, "a size of 0 in x"),
            ([flat], "tavok-render: file %s holds no samples: its size is 7 x 0 x 3" % flat, "a size of 0 in y"),
            ([text], "tavok-render: file %s is too short: 8289 x 25972 x 29816 needs" % text, "a text file"),
            ([pipe], "tavok-render: can't read %s: it is not a regular file" % pipe, "a named pipe"),
            ([over], "error in file %s" % over, "a sample above 4095")]:
        expect_error(args + mode, message, what)
    os.remove(pipe)


def main():
    global RENDER, TMP
    parser = argparse.ArgumentParser()
    parser.add_argument("--render", required=True)
    parser.add_argument("--build", required=True)
    opts = parser.parse_args()
    RENDER = opts.render
    with tempfile.TemporaryDirectory(prefix="tavok-render-test-") as TMP:
        # A small phantom keeps every run short; the head is the same at any size.
        tool = os.path.join(opts.build, "make-phantom")
        if os.path.exists(tool):
            volume = os.path.join(TMP, "phantom.dat")
            subprocess.run([tool, volume, "--size", "96", "96", "80"], check=True,
                           stdout=subprocess.DEVNULL)
        else:
            print("skipped: phantom tests (make-phantom is not built); using a hand-made ball")
            volume = write_dat(os.path.join(TMP, "ball.dat"), (41, 37, 33),
                               lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 16) ** 2 < 150 else 0)
        modes = available_modes(volume)
        print("modes of this build: " + (", ".join(modes) or "none"))
        test_errors(volume, modes)
        if not modes:
            print("skipped: image tests (no render mode is built yet)")
        else:
            test_sizes_and_modes(volume, modes)
            test_compressed_against_stored(volume, modes)
            test_block_volume(modes)
            test_nodes(modes)
            test_preview_against_final(volume, modes)
            test_set(volume, modes)
            test_option_order(volume, modes)
            test_camera(volume, modes)
            test_time_and_bench(volume, modes)
            test_bench_baseline(volume, modes)
            test_palette_files(modes)
            test_cuts(modes)
            test_occlusion(volume, modes)
            test_abstract(volume)
            test_own_voxel_model(modes, opts.build)
            test_slice_settings(modes)
            test_projections(volume, modes)
    finish()


if __name__ == "__main__":
    main()
