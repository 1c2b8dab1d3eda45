#!/usr/bin/env python3
"""tavok-render and the window run one code path: the cuberille final that tavok-render writes
at 512 x 409 with its default camera equals, pixel for pixel, what the window shows in its
image area after loading the same file and switching to the 3D tab.

Also: a hand-made volume with a non-square view, and the slice view (mode 12) that the window
shows right after the load against tavok-render --mode slices."""
import os
import subprocess
import tempfile

from guitest import Tavok, check, finish, options, phantom, read_png, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
render = os.path.join(opts.build, "tavok-render")
IMAGE_W, IMAGE_H = 512, 409  # the image area of the 512 x 512 window; the strip is below

# The "3D" tab of GUIrendermodeTabs: the tabs stand on the left of the notebook, "Slices" first
# and "3D" below it, at this place of the panel's fixed layout.
TAB_3D = (35, 123)


def tavok_render(volume, out, *args):
    p = subprocess.run([render, volume, "--size", "%dx%d" % (IMAGE_W, IMAGE_H), "-o", out] + list(args),
                       capture_output=True, text=True)
    check(p.returncode == 0, "tavok-render %s: status 0 (%s)" % (" ".join(args), p.stderr.strip()))
    image, alpha = read_png(out)
    check((image.width, image.height) == (IMAGE_W, IMAGE_H), "tavok-render image is 512 x 409")
    return image


def compare(shot, image, what):
    area = shot.crop(0, 0, IMAGE_W, IMAGE_H)
    diff = [(i % IMAGE_W, i // IMAGE_W) for i in range(IMAGE_W * IMAGE_H) if area.pixels[i] != image.pixels[i]]
    lit = sum(1 for p in image.pixels if p)
    check(lit > 1000, "%s: the picture shows the volume (%d lit pixels)" % (what, lit))
    check(not diff, "%s: window and tavok-render agree pixel for pixel (%d differ%s)"
          % (what, len(diff), ", first at %r: window %06x, file %06x" % (
              diff[0], area.at(*diff[0]), image.at(*diff[0])) if diff else ""))


def window_after_load(volume, pattern):
    """Starts tavok on volume and returns (tavok, slice-view screenshot, 3D-tab screenshot)."""
    t = Tavok(opts, [volume]).__enter__()
    check(t.wait_out(pattern) is not None, "the load's log line")
    # Without a window manager both windows open at the top left: the panel goes aside.
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    slices = t.settled_screenshot(pause=0.2)
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + TAB_3D[0], py + TAB_3D[1])
    xdotool("click", "1")
    shot = t.settled_screenshot(slices, pause=0.2)
    return t, slices, shot


def close(t):
    t.key("q")
    check(t.wait_exit() == 0, "q ends the program")
    t.__exit__(None, None, None)


# The phantom, the bundled sample.
head = phantom(opts)
t, slices, shot = window_after_load(head, r"^Orlen-data x=192, y=192, z=160$")
compare(shot, tavok_render(head, os.path.join(tmp, "head.png")), "phantom, cuberille final")
compare(slices, tavok_render(head, os.path.join(tmp, "head-slices.png"), "--mode", "slices"),
        "phantom, slice view")
close(t)

# A hand-made volume of odd sizes: a ball of 3000 in a slab of 1500, seen edge-on from the
# slice camera (the eye 256 voxels in front of the centre along x).
ball = write_dat(os.path.join(tmp, "ball.dat"), (41, 37, 23),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else
                 (1500 if z < 15 else 0))
t, slices, shot = window_after_load(ball, r"^Orlen-data x=41, y=37, z=23$")
compare(shot, tavok_render(ball, os.path.join(tmp, "ball.png")), "ball, cuberille final")
close(t)

finish()
