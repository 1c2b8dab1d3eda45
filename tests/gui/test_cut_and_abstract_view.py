#!/usr/bin/env python3
"""The cutting tab in the real windows: "Abstract / 3D View" shows the box and the cutting
plane in place of the 3D image and back, "Set new Planenormal" takes the view direction, the
plane's slider places it, and "Apply Cut" erases what lies in front of it for good."""
import os
import re
import tempfile

from guitest import Tavok, check, finish, options, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
# A block of 31 x 27 x 21 voxels of density 3000 (grid 35 x 31 x 25 with the margin).
block = write_dat(os.path.join(tmp, "block.dat"), (31, 27, 21), lambda x, y, z: 3000)

IMAGE_W, IMAGE_H = 512, 409
# Places in the panel, moved to 600, 0 (its layout is fixed).
SWITCH_3D = (140, 220)        # Slices tab: "3D View / Slice View"
CUTTING_TAB = (35, 235)       # the tab "Cutting Plane & Sphere"
ABSTRACT = (270, 97)          # "Abstract / 3D View"
PLANE_NORMAL = (270, 189)     # "Set new Planenormal"
PLANE_SLIDER = (70, 470, 229)  # the distance slider's trough: left end, right end, height
APPLY = (270, 400)            # "Apply Cut"


def lit(image):
    return image.count(lambda p: p != 0)


def greenish(image):
    """Pixels of the box's colour, lit: green well above red and blue."""
    return image.count(lambda p: ((p >> 8) & 255) - max(p >> 16, p & 255) > 60)


def bluish(image):
    """Pixels of the plane's colour, lit: blue well above red and green."""
    return image.count(lambda p: (p & 255) - max(p >> 16, (p >> 8) & 255) > 60)


def solid_bricks(line):
    return int(re.search(r"contains (\d+) air and (\d+) solid", line).group(2))


with Tavok(opts, [block]) as t:
    brick_line = t.wait_out(r"^the mipmap contains")
    check(brick_line is not None, "the load's brick map")
    panel = t.panel_aside()
    px, py, _, _ = t.geometry(panel)

    def press(place, button=1):
        xdotool("mousemove", "--sync", px + place[0], py + place[1])
        t.settle(0.2)
        xdotool("click", button)

    crop = (0, 0, IMAGE_W, IMAGE_H)
    slices = t.settled_screenshot(crop=crop)
    # The 3D view from the slice plane's camera, about 256 voxels before the block's x = 0 face,
    # looking along +x; then the cutting tab, which keeps it.
    press(SWITCH_3D)
    cuberille = t.settled_screenshot(slices, crop=crop)
    press(CUTTING_TAB)
    t.settle(0.5)
    check(lit(cuberille) > 1000, "the block in 3D (%d pixels)" % lit(cuberille))

    # The plane's normal becomes the view direction, about (1, 0, 0). The slider at 0.09 of its
    # range -1..1 (54.5% along the trough) puts the offset at d = (2 * 0.09 - 0.5) * diag, about
    # -17 voxels (the diagonal is 53): the plane x = 17 through the middle of the block.
    press(PLANE_NORMAL)
    t.settle(0.3)
    left, right, y = PLANE_SLIDER
    press((left + (right - left) * 545 // 1000, y), button=2)
    t.settle(0.3)

    press(ABSTRACT)
    abstract = t.settled_screenshot(cuberille, crop=crop)
    check(abstract.differs(cuberille), "the abstract view replaces the 3D image")
    # From outside the box's front face hides the plane inside it; the plane's disc (radius
    # the diagonal) shows around the box.
    check(greenish(abstract) > 1000, "the box's face in green (%d pixels)" % greenish(abstract))
    check(bluish(abstract) > 1000, "the plane's disc in blue around it (%d pixels)" % bluish(abstract))
    check(abstract.at(IMAGE_W - 1, 0) == abstract.at(IMAGE_W - 2, 0), "every second pixel, copied")
    press(ABSTRACT)
    back = t.settled_screenshot(abstract, crop=crop)
    check(not back.differs(cuberille), "toggled off, the 3D image is back as it was")

    # Apply Cut erases x + 0.5 < 17, the half in front: the brick map has fewer solid bricks, and
    # the block's face seen now is the cut, further away, so the block looks smaller.
    start = t.out_count()
    press(APPLY)
    line = t.wait_out(r"^the mipmap contains", start=start)
    check(line is not None, "Apply Cut rebuilds the brick map")
    if line and brick_line:
        check(0 < solid_bricks(line) < solid_bricks(brick_line), "fewer solid bricks after the cut: %d of %d"
              % (solid_bricks(line), solid_bricks(brick_line)))
    cut = t.settled_screenshot(back, crop=crop)
    check(0 < lit(cut) < lit(cuberille), "the cut block looks smaller from the same eye (%d of %d pixels)"
          % (lit(cut), lit(cuberille)))
    t.key("q")
    check(t.wait_exit() == 0, "exit status 0")

finish()
