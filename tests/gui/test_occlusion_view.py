#!/usr/bin/env python3
"""Shadows in the real windows: the phantom in the 3D view with "Show occlusion data only"
(light model 2, a hit shows its occlusion byte as grey) is all the load's grey 0x808080; soft
shadows at the smallest step size are precalculated with "Precalculate Occlusions", while the
shadow bar fills step by step and a key press still moves the camera; at the end the bar is
empty again, the log has its four lines, and the picture shows the computed field: lit and
shadowed greys instead of the one neutral grey. "Blur Shadows" then changes it again.

The phantom is made at 256 x 256 x 240 here, so that the calculation lasts some seconds even
on an idle machine: long enough to see the bar move and the camera answer meanwhile."""
import os
import re
import subprocess
import tempfile
import time

from guitest import Tavok, check, finish, options, read_xwd, xdotool

opts = options()
IMAGE_W, IMAGE_H = 512, 409

# Places in the panel (moved to 600, 0; its layout is fixed, measured from the widgets'
# allocations): the notebook tabs on the left, then, on the 3D tab, the radio "Show occlusion
# data only", and on the Light & Shadow tab the step size slider, the two shadow radios, the
# two buttons and the shadow bar.
TAB_3D = (35, 123)
TAB_LIGHT = (35, 167)
OCCLUSION_ONLY = (232, 253)
STEPSIZE = (340, 380)
SOFT, HARD = (80, 407), (80, 428)
PRECALC = (156, 453)
SHADOW_BAR = (247, 441, 224, 24)  # x, y, width, height inside the bar
BLUR = (155, 481)


def image(t):
    return t.screenshot().crop(0, 0, IMAGE_W, IMAGE_H)


def settled(t, previous=None):
    return t.settled_screenshot(previous, crop=(0, 0, IMAGE_W, IMAGE_H))


def greys(shot):
    """The greys of the hit pixels (black is a miss, or full shadow) and how often each comes."""
    counts = {}
    for p in shot.pixels:
        if p:
            counts[p] = counts.get(p, 0) + 1
    return counts


def both(t, sdl, panel):
    """One screenshot of the screen: the image area of the SDL window and the top row of the
    shadow bar, taken at the same moment."""
    root = read_xwd(subprocess.run(["xwd", "-root", "-silent"], capture_output=True).stdout)
    sx, sy, _, _ = t.geometry(sdl)
    px, py, _, _ = t.geometry(panel)
    x, y, w, _ = SHADOW_BAR
    return root.crop(sx, sy, IMAGE_W, IMAGE_H), root.crop(px + x, py + y + 3, w, 1).pixels


def fill(row, empty):
    """How many columns of the bar's row, from the left, differ from the empty bar."""
    filled = 0
    while filled < len(row) and row[filled] != empty[filled]:
        filled += 1
    return filled


def panel_click(panel, at):
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + at[0], py + at[1])
    xdotool("click", "1")
    time.sleep(0.3)


tmp = tempfile.mkdtemp()
volume = os.path.join(tmp, "phantom-256.dat")
subprocess.run([os.path.join(opts.build, "make-phantom"), volume, "--size", "256", "256", "240"], check=True,
               stdout=subprocess.DEVNULL)

with Tavok(opts, [volume]) as t:
    check(t.wait_out(r"^Orlen-data x=256, y=256, z=240$") is not None, "the phantom is loaded")
    # Without a window manager both windows open at the top left: the panel goes aside.
    panel = t.panel_window()
    sdl = t.sdl_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    t.settle(0.8)
    slices = settled(t)

    panel_click(panel, TAB_3D)
    panel_click(panel, OCCLUSION_ONLY)
    neutral = settled(t, slices)
    g = greys(neutral)
    check(set(g) == {0x808080} and g[0x808080] > 5000,
          "light model 2 before any calculation: the load's grey 0x808080 (%r)" % sorted(g)[:5])

    # Soft shadows (the radio shows "Soft" at start while the setting is hard: hard first, then
    # soft), at the smallest step: the slider takes the keyboard (which follows the pointer
    # here) and Home puts it at 0.1.
    panel_click(panel, TAB_LIGHT)
    panel_click(panel, HARD)
    panel_click(panel, SOFT)
    panel_click(panel, STEPSIZE)
    xdotool("key", "Home")
    time.sleep(0.3)
    _, empty = both(t, sdl, panel)

    lines = t.out_count()
    panel_click(panel, PRECALC)
    check(t.wait_out(r"^calculating occlusion$", start=lines, timeout=5) is not None, "the click is logged")
    # At once a key in the SDL window: s moves the eye back (right Shift for small steps). The
    # keyboard follows the pointer.
    before, _ = both(t, sdl, panel)
    t.move(IMAGE_W // 2, IMAGE_H // 2)
    t.focus_sdl()
    xdotool("keydown", "Shift_R")
    xdotool("keydown", "s")
    time.sleep(0.1)
    xdotool("keyup", "s")
    xdotool("keyup", "Shift_R")
    fills = []
    moved = None  # whether the picture moved while the worker still ran
    done = None
    deadline = time.time() + 180
    while time.time() < deadline:
        shot, row = both(t, sdl, panel)
        # Looked at after the screenshot: if the worker hasn't finished now, it was running
        # when the screenshot was taken.
        done = t.wait_out(r"^finished shadow-calc thread", start=lines, timeout=0.01)
        fills.append(fill(row, empty))
        if moved is None and shot.differs(before):
            moved = done is None
        if done:
            break
    check(moved is True, "a key press moves the camera while the worker runs (%r)" % moved)
    check(done is not None, "the calculation finishes")
    seen = [f for f in fills if f > 0]
    check(len(set(seen)) >= 2, "the shadow bar moves during the calculation (%r)" % fills[:30])
    check(seen == sorted(seen), "and only forward (%r)" % seen[:30])
    log = t.stdout().splitlines()[lines:]
    order = [l for l in log if re.match(r"^(calculating occlusion|started shadow-calc thread|set thread-start call|"
                                        r"finished shadow-calc thread in ~\d+ milliseconds)$", l)]
    # The worker's last line may come before or after the main thread's "set thread-start call".
    check(order[:2] == ["calculating occlusion", "started shadow-calc thread"] and len(order) == 4
          and "set thread-start call" in order[2:] and any(l.startswith("finished") for l in order[2:]),
          "the four log lines (%r)" % order)
    time.sleep(0.5)
    check(fill(both(t, sdl, panel)[1], empty) == 0, "the bar is empty again at the end")

    # The picture now shows the field: lit and shadowed greys where there was one grey.
    shaded = settled(t)
    g = greys(shaded)
    check(all(p == (p & 0xff) * 0x010101 for p in g), "still greys only")
    shadowed = sum(n for p, n in g.items() if (p & 0xff) <= 0xa0)
    lit = sum(n for p, n in g.items() if (p & 0xff) >= 0xe0)
    check(len(g) > 10, "soft shadows give many greys (%d)" % len(g))
    check(shadowed > 500 and lit > 500, "shadowed and lit parts (%d pixels at most 0xa0, %d at least 0xe0)"
          % (shadowed, lit))

    panel_click(panel, BLUR)
    blurred = settled(t, shaded)
    check(blurred.differs(shaded), "Blur Shadows changes the picture")

    t.key("q")
    check(t.wait_exit() == 0, "q ends the program")

finish()
