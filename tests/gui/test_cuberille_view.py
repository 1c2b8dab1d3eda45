#!/usr/bin/env python3
"""The 3D view (cuberille) in the real windows: load a ball, press "3D View / Slice View" in the
panel, see the ball from the slice plane's camera, move back with a key and turn with a left
drag, and find a render time in the panel's GUIrendertime entry once the final pass has run."""
import os
import tempfile

from guitest import Tavok, check, finish, options, render_time_ink, start_grey, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()

# A ball of density 3000 and radius 8 in empty space, 41 x 37 x 23 samples (45 x 41 x 27 with
# the margin), centred on the grid's centre (22, 20, 13).
X, Y, Z = 41, 37, 23
ball = write_dat(os.path.join(tmp, "ball.dat"), (X, Y, Z),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else 0)

IMAGE_W, IMAGE_H = 512, 409
# Places in the panel (moved to 600, 0; its layout is fixed): the toggle "3D View / Slice
# View" on the Slices tab.
SWITCH_3D = (140, 220)


BALL = start_grey(3000) * 0x010101


def image(shot):
    return shot.crop(0, 0, IMAGE_W, IMAGE_H)


def settled(t, previous=None):
    """The image area after the final pass (and changed from previous)."""
    return t.settled_screenshot(previous, crop=(0, 0, IMAGE_W, IMAGE_H))


def ball_pixels(shot):
    """Pixels of the ball's colour and their centre."""
    xs, ys = [], []
    for i, p in enumerate(shot.pixels):
        if p == BALL:
            xs.append(i % shot.width)
            ys.append(i // shot.width)
    if not xs:
        return 0, None
    return len(xs), (sum(xs) / len(xs), sum(ys) / len(ys))


with Tavok(opts, [ball]) as t:
    check(t.wait_out(r"^Orlen-data x=41, y=37, z=23$") is not None, "the load's log line")
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    t.settle(0.8)
    slices = settled(t)
    check(render_time_ink(t, panel) == 0, "no render time before any final pass")

    # The 3D view: render mode 0, seen from the slice plane's camera, 256 voxels in front of
    # the centre along x. The ball (radius 8) is a disc of about 13 pixels radius in the middle.
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + SWITCH_3D[0], py + SWITCH_3D[1])
    xdotool("click", "1")
    view = settled(t, slices)
    n, centre = ball_pixels(view)
    check(view.differs(slices), "the 3D view replaces the slice")
    check(300 < n < 900, "the ball is a disc in the middle of the image (%d pixels)" % n)
    if centre:
        check(abs(centre[0] - IMAGE_W / 2) < 3 and abs(centre[1] - IMAGE_H / 2) < 3,
              "the disc is centred (%.1f, %.1f)" % centre)
    check(view.at(5, 5) == 0 and view.at(IMAGE_W - 6, IMAGE_H - 6) == 0, "black around it")
    t.settle(0.5)
    check(render_time_ink(t, panel) > 10, "the final pass put its render time into GUIrendertime")

    # s moves the eye back along the view: the ball gets smaller and stays in the middle. The
    # key acts on every frame while it is down, so right Shift (5 voxels a frame, not 15)
    # keeps the ball in sight however many frames a short press lasts.
    t.focus_sdl()
    xdotool("keydown", "Shift_R")
    xdotool("keydown", "s")
    t.settle(0.04)
    xdotool("keyup", "s")
    xdotool("keyup", "Shift_R")
    back = settled(t, view)
    n2, centre2 = ball_pixels(back)
    check(back.differs(view), "the s key changes the image")
    check(0 < n2 < n, "the ball is smaller from further back (%d pixels, was %d)" % (n2, n))
    if centre2:
        check(abs(centre2[0] - IMAGE_W / 2) < 3 and abs(centre2[1] - IMAGE_H / 2) < 3,
              "and still in the middle (%.1f, %.1f)" % centre2)

    # A left drag to the right on the image turns the view about iup: the ball moves sideways.
    t.drag_relative(200, 200, 60, 0)
    turned = settled(t, back)
    n3, centre3 = ball_pixels(turned)
    check(turned.differs(back), "the drag changes the image")
    check(n3 > 0 and centre3 is not None and abs(centre3[0] - IMAGE_W / 2) > 10,
          "the ball moved sideways (%r)" % (centre3,))
    if centre3:
        check(abs(centre3[1] - IMAGE_H / 2) < 3, "but not up or down (%.1f)" % centre3[1])

    t.key("q")
    check(t.wait_exit() == 0, "q ends the program")

finish()
