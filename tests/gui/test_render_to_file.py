#!/usr/bin/env python3
"""Render to File from a window of another size: the panel's button, its save dialog, a
1024 x 1024 PNG of the view, and the window back at its own size with a fresh picture."""
import os
import subprocess
import tempfile
import time

from guitest import Tavok, check, finish, options, read_png, start_grey, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
X, Y, Z = 41, 37, 23
ball = write_dat(os.path.join(tmp, "ball.dat"), (X, Y, Z),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else 0)
BALL = start_grey(3000) * 0x010101

# Places in the panel, moved to 600, 0 (its layout is fixed): "3D View / Slice View" on the
# Slices tab and "Render to File (1024x1024 pixels)" at the top.
SWITCH_3D = (140, 220)
RENDER_TO_FILE = (245, 67)
WINDOW_W, WINDOW_H = 640, 400
IMAGE_H = WINDOW_H * 4 // 5


def dialog_window(t, panel, sdl, timeout=20):
    """The save dialog: the largest visible window of the program's class that is neither the
    panel nor the SDL window (the panel's tooltip is one too, but small)."""
    deadline = time.time() + timeout
    while time.time() < deadline:
        found = [(w, t.geometry(w)) for w in xdotool("search", "--onlyvisible", "--class", "Tavok").split()
                 if w not in (panel, sdl)]
        found = [(w, g) for w, g in found if g[2] > 300 and g[3] > 200]
        if found:
            return max(found, key=lambda f: f[1][2] * f[1][3])
        time.sleep(0.1)
    return None, None


def ball_centre(image, colour):
    xs, ys = [], []
    for i, p in enumerate(image.pixels):
        if p == colour:
            xs.append(i % image.width)
            ys.append(i // image.width)
    if not xs:
        return 0, None
    return len(xs), (sum(xs) / len(xs), sum(ys) / len(ys))


with Tavok(opts, [ball]) as t:
    check(t.wait_out(r"^Orlen-data x=41, y=37, z=23$") is not None, "the load's log line")
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    t.settle(0.8)
    px, py, _, _ = t.geometry(panel)
    # The cuberille view of the ball.
    xdotool("mousemove", "--sync", px + SWITCH_3D[0], py + SWITCH_3D[1])
    xdotool("click", "1")
    t.settle(0.5)

    # A window of another size and shape than the file's.
    window = t.sdl_window()
    start = t.out_count()
    xdotool("windowsize", window, WINDOW_W, WINDOW_H)
    line = t.wait_out(r"^RESIZED", start=start)
    check(line == "RESIZED: desired: %d %d  actually: %d %d" % (WINDOW_W, WINDOW_H, WINDOW_W, WINDOW_H),
          "window resized to %d x %d: %r" % (WINDOW_W, WINDOW_H, line))
    on_screen = t.settled_screenshot(crop=(0, 0, WINDOW_W, IMAGE_H))

    # The button, then a name typed into the dialog and Return (its default answer is OK).
    start = t.out_count()
    xdotool("mousemove", "--sync", px + RENDER_TO_FILE[0], py + RENDER_TO_FILE[1])
    time.sleep(0.3)
    xdotool("click", "1")
    dialog, place = dialog_window(t, panel, window)
    check(dialog is not None, "the save dialog comes up")
    if dialog is None:
        print([(w, t.geometry(w)) for w in xdotool("search", "--onlyvisible", "--class", "Tavok").split()], window, panel, t.stdout()[-500:], t.stderr()[-800:])
    target = os.path.join(tmp, "render")
    if dialog:
        # Into its Name entry, at the top of the dialog, a full path. Without a window manager
        # the keys go to the window under the pointer, which stays on the entry.
        time.sleep(0.5)
        xdotool("mousemove", "--window", dialog, place[2] // 2, 22)
        xdotool("click", "1")
        time.sleep(0.3)
        xdotool("type", "--delay", "15", target)
        time.sleep(0.2)
        xdotool("key", "Return")
    saved = t.wait_out(r"^saved the file$", start=start, timeout=60)
    check(saved is not None, "'saved the file' on standard output")
    check(t.wait_out(r"^saving to file %s\.png$" % target, start=start, timeout=1) is not None,
          "the name without an ending got .png")
    restored = t.wait_out(r"^RESIZED", start=start, timeout=5)
    check(restored == "RESIZED: desired: %d %d  actually: %d %d" % (WINDOW_W, WINDOW_H, WINDOW_W, WINDOW_H),
          "the window is restored at its old size: %r" % restored)

    path = target + ".png"
    if check(os.path.exists(path), "the file is written"):
        image, alpha = read_png(path)
        check((image.width, image.height) == (1024, 1024), "the file is 1024 x 1024 (%d x %d)"
              % (image.width, image.height))
        check(os.path.getsize(path) == 63 + 1024 * (4 * 1024 + 6), "the file has the writer's size")
        # The same view as on screen but for the aspect ratio: the ball in the middle of both,
        # larger in the file, whose short side is 1024 pixels, not 320.
        n_file, c_file = ball_centre(image, BALL)
        n_screen, c_screen = ball_centre(on_screen, BALL)
        check(n_screen > 0 and n_file > n_screen * 5, "the ball in the file (%d pixels) and on screen (%d)"
              % (n_file, n_screen))
        if c_file and c_screen:
            check(abs(c_file[0] - 512) < 4 and abs(c_file[1] - 512) < 4, "centred in the file %r" % (c_file,))
            check(abs(c_screen[0] - WINDOW_W / 2) < 3 and abs(c_screen[1] - IMAGE_H / 2) < 3,
                  "centred on screen %r" % (c_screen,))

    # The window keeps its size and shows a fresh picture of the view again.
    _, _, w, h = t.geometry(window)
    check((w, h) == (WINDOW_W, WINDOW_H), "the window is %d x %d after the render (%d x %d)"
          % (WINDOW_W, WINDOW_H, w, h))
    after = t.settled_screenshot(crop=(0, 0, WINDOW_W, IMAGE_H))
    n_after, _ = ball_centre(after, BALL)
    check(n_after == ball_centre(on_screen, BALL)[0], "the window shows the view again (%d ball pixels)" % n_after)
    t.key("q")
    check(t.wait_exit() == 0, "exit status 0")

finish()
