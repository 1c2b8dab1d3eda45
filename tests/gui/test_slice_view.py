#!/usr/bin/env python3
"""The slice view, the start mode of a loaded volume: tavok FILE shows the XY slice through the
middle of the grid in the image area, black around it, and the volume's sizes in the panel.
A click on the panel's XZ radio button brings up the XZ slice."""
import os
import tempfile

from guitest import Tavok, check, finish, options, start_grey, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()

# 41 x 37 x 23 samples of density 1500 with a ball of 3000 in the middle. The grid has a margin
# of 2 voxels of 0 on every face: 45 x 41 x 27.
X, Y, Z = 41, 37, 23
ball = write_dat(os.path.join(tmp, "ball.dat"), (X, Y, Z),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else 1500)

IMAGE_W, IMAGE_H = 512, 409  # the image area of the 512 x 512 window; the strip is below
PIXELS_PER_VOXEL = IMAGE_H / 256.0  # zoom 256: 256 voxels across the short side


def lit_box(image):
    """Bounding box (x0, y0, x1, y1) of the non-black pixels of the image area, or None."""
    xs, ys = [], []
    for y in range(IMAGE_H):
        row = image.pixels[y * image.width:y * image.width + IMAGE_W]
        lit = [x for x, p in enumerate(row) if p != 0]
        if lit:
            xs += [lit[0], lit[-1]]
            ys.append(y)
    return (min(xs), min(ys), max(xs), max(ys)) if xs else None


with Tavok(opts, [ball]) as t:
    check(t.wait_out(r"^Orlen-data x=41, y=37, z=23$") is not None, "the load's log line")
    # Without a window manager both windows open at the top left: the panel goes aside.
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    t.settle(0.5)

    shot = t.settled_screenshot()
    check((shot.width, shot.height) == (512, 512), "window of 512 x 512 (got %d x %d)" % (shot.width, shot.height))
    box = lit_box(shot)
    check(box is not None, "the image area shows the volume")
    if box:
        x0, y0, x1, y1 = box
        w, h = x1 - x0 + 1, y1 - y0 + 1
        # 41 samples wide (x) and 37 high (y), with a pixel or two of fade at the far edges.
        check(abs(w - X * PIXELS_PER_VOXEL) <= 4, "slice width %d px for %d voxels" % (w, X))
        check(abs(h - Y * PIXELS_PER_VOXEL) <= 4, "slice height %d px for %d voxels" % (h, Y))
        check(abs((x0 + x1) / 2 - IMAGE_W / 2) <= 4 and abs((y0 + y1) / 2 - IMAGE_H / 2) <= 4,
              "the slice is centred in the image area (box %r)" % (box,))
    # The middle of the middle XY slice is the ball; a little off it the background density.
    centre = shot.at(IMAGE_W // 2, IMAGE_H // 2)
    check(centre == start_grey(3000) * 0x010101, "centre pixel is the ball's grey (got %06x)" % centre)
    side = shot.at(IMAGE_W // 2 - int(16 * PIXELS_PER_VOXEL), IMAGE_H // 2)
    check(side == start_grey(1500) * 0x010101, "left of the ball the background grey (got %06x)" % side)
    # Black all around the slice.
    for x, y in ((3, 3), (IMAGE_W - 4, 3), (3, IMAGE_H - 4), (IMAGE_W - 4, IMAGE_H - 4), (60, IMAGE_H // 2)):
        check(shot.at(x, y) == 0, "black outside the slice at (%d, %d)" % (x, y))
    # The panel shows the file named on the command line, and showing it loads nothing again.
    check(t.stdout().count("Orlen-data") == 1, "the file is loaded once")

    # The XZ radio of the Slices tab (a fixed place in the panel's layout): x by z, 23 high.
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + 190, py + 252)
    xdotool("click", "1")
    shot2 = t.settled_screenshot(shot)
    box2 = lit_box(shot2)
    check(box2 is not None, "the XZ slice shows the volume")
    if box2:
        w2, h2 = box2[2] - box2[0] + 1, box2[3] - box2[1] + 1
        check(abs(w2 - X * PIXELS_PER_VOXEL) <= 4, "XZ slice width %d px for %d voxels" % (w2, X))
        check(abs(h2 - Z * PIXELS_PER_VOXEL) <= 4, "XZ slice height %d px for %d voxels" % (h2, Z))
    check(shot2.at(IMAGE_W // 2, IMAGE_H // 2) == start_grey(3000) * 0x010101, "the XZ slice meets the ball in its middle")

    t.key("q")
    check(t.wait_exit() == 0, "q ends the program")

finish()
