#!/usr/bin/env python3
"""The maximum intensity and average projections in the real windows: chosen on the panel's
3D tab (the MIP and AVG tabs, each interpolation), a trilinear final that gives way to a key
press at once, and a double click on the editor strip that holds the final back for 350 ms.

The volume is a ball of density 1200 (opacity 0.29 and grey 74 in the start tables) with a core
of 3500 (opacity 0.85, grey 217). From the slice plane's camera the cuberille view stops at the
shell; a mip ray through the middle shows the core, which is the more opaque; the average lies
between the two.
"""
import hashlib
import os
import struct
import subprocess
import tempfile
import time

from guitest import Tavok, check, finish, options, start_grey, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()

X, Y, Z = 41, 37, 23


def ball(x, y, z):
    r2 = (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2
    return 3500 if r2 < 16 else 1200 if r2 < 64 else 0


volume = write_dat(os.path.join(tmp, "cored_ball.dat"), (X, Y, Z), ball)

IMAGE_W, IMAGE_H = 512, 409
SHELL, CORE = start_grey(1200) * 0x010101, start_grey(3500) * 0x010101
# Places in the panel, moved aside to (600, 0); its layout is fixed.
TAB_3D = (34, 123)        # the 3D tab
TAB_MIP = (148, 167)      # its inner tabs
TAB_AVG = (184, 167)
NO_INTERP = (78, 94)      # the interpolation radio buttons
TRILINEAR = (78, 138)
STEPSIZE = (420, 138)     # the sample distance spin button's entry
# The top row of the opacity area of the editor strip at density 1200 (x = 1200 / 8): a node
# there has opacity 1 - 1/83 = 0.988, so a mip ray stops at the shell.
STRIP_POINT = (150, IMAGE_H + 1)


def panel_click(t, panel, place, clicks=1):
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + place[0], py + place[1])
    xdotool("click", "--repeat", clicks, "--delay", 60, "1")


def settled(t, previous=None):
    return t.settled_screenshot(previous, crop=(0, 0, IMAGE_W, IMAGE_H))


def centre(shot):
    return shot.at(IMAGE_W // 2, IMAGE_H // 2)


def grey_level(p):
    return p & 0xff if p >> 16 == p & 0xff and (p >> 8) & 0xff == p & 0xff else None


def image_hash(window):
    """A quick look at the image area of the SDL window: a fingerprint of the rows of a raw
    xwd dump, hashed without decoding, and the centre pixel; fast enough to time a pause."""
    data = subprocess.run(["xwd", "-id", window, "-silent"], capture_output=True).stdout
    fields = struct.unpack(">25I", data[:100])
    header, byte_order, bits, line, ncolors = fields[0], fields[7], fields[11], fields[12], fields[19]
    offset, bpp = header + ncolors * 12, bits // 8
    h = hashlib.md5()
    for row in range(IMAGE_H):
        h.update(data[offset + row * line:offset + row * line + IMAGE_W * bpp])
    at = offset + (IMAGE_H // 2) * line + (IMAGE_W // 2) * bpp
    pixel = data[at:at + 3]
    pixel = pixel[2] << 16 | pixel[1] << 8 | pixel[0] if byte_order == 0 else pixel[0] << 16 | pixel[1] << 8 | pixel[2]
    return h.hexdigest(), pixel


def watch(window, seconds):
    """(time, fingerprint, centre pixel) of the image area, as fast as they come, for seconds.
    The time is taken when the dump is done: what a shot shows was on the screen by then (a
    dump takes tens of milliseconds on a loaded machine, so its start would be too early)."""
    shots, end = [], time.time() + seconds
    while time.time() < end:
        fingerprint, centre_pixel = image_hash(window)
        shots.append((time.time(), fingerprint, centre_pixel))
    return shots


def hold(button, hold_ms):
    xdotool("mousedown", button)
    time.sleep(hold_ms / 1000.0)
    xdotool("mouseup", button)


with Tavok(opts, [volume]) as t:
    check(t.wait_out(r"^Orlen-data x=41, y=37, z=23$") is not None, "the load's log line")
    panel = t.panel_aside()
    slices = settled(t)
    sdl = t.sdl_window()

    # --- The 3D view (cuberille) first: the shell stops its rays.
    t.switch_to_3d()
    cuberille = settled(t, slices)
    check(centre(cuberille) == SHELL, "cuberille: the shell's grey in the middle (0x%06x)" % centre(cuberille))

    # --- MIP: the core, the more opaque, wins in the middle; the rim shows the shell alone.
    panel_click(t, panel, TAB_3D)
    t.settle(0.3)
    panel_click(t, panel, TAB_MIP)
    mip = settled(t, cuberille)
    check(centre(mip) == CORE, "MIP tab: the core's grey in the middle (0x%06x)" % centre(mip))
    rim = [mip.at(x, IMAGE_H // 2) for x in range(IMAGE_W // 2, IMAGE_W)]
    check(SHELL in rim, "MIP: the shell's grey where the rays miss the core")
    check(mip.at(5, 5) == 0, "MIP: black around the ball")

    # --- AVG: the mean along the ray lies between the shell's grey and the core's.
    panel_click(t, panel, TAB_AVG)
    avg = settled(t, mip)
    level = grey_level(centre(avg))
    check(level is not None and start_grey(1200) < level < start_grey(3500),
          "AVG tab: a grey between shell and core in the middle (0x%06x)" % centre(avg))
    check(avg.at(5, 5) == 0, "AVG: black around the ball")

    # --- Trilinear finals of both modes.
    panel_click(t, panel, TRILINEAR)
    avg3 = settled(t, avg)
    level3 = grey_level(centre(avg3))
    check(avg3.differs(avg), "AVG, trilinear: another picture")
    check(level3 is not None and start_grey(1200) < level3 < start_grey(3500),
          "AVG, trilinear: a grey between shell and core (0x%06x)" % centre(avg3))
    panel_click(t, panel, TAB_MIP)
    mip3 = settled(t, avg3)
    check(centre(mip3) == CORE, "MIP, trilinear: the core's grey in the middle (0x%06x)" % centre(mip3))

    # --- A double click on the strip adds an opacity node of opacity 0.988 at the shell's
    # density: a change, so the preview follows at once, with the shell's grey in the middle;
    # the final, which shows the same, waits until the double click is more than 350 ms old.
    # (The first press of the pair draws a preview and a final of the old picture too.)
    panel_click(t, panel, NO_INTERP)
    before = settled(t, mip3)
    check(centre(before) == CORE, "MIP, no interpolation: the core in the middle")
    done = False
    for attempt in range(3):
        start = t.out_count()
        t.move(*STRIP_POINT)
        time.sleep(0.3)
        _, baseline_centre = image_hash(sdl)
        hold(1, 40)
        time.sleep(0.04)
        clicked = time.time()
        hold(1, 150)
        shots = watch(sdl, 2.0)
        if t.wait_out(r"^opacity=", timeout=1, start=start) is None:
            time.sleep(0.5)  # too slow to count as a double click on a busy machine: again
            continue
        done = True
        final_hash, final_centre = shots[-1][1], shots[-1][2]
        check(final_centre == SHELL, "the new node stops the rays at the shell (0x%06x)" % final_centre)
        check(any(c == SHELL and h != final_hash for _, h, c in shots),
              "the preview of the new node showed before the final")
        final_at = next(when for when, h, _ in shots if h == final_hash)
        check(final_at - clicked >= 0.35, "the final came %.0f ms after the double click, "
              "not before 350" % ((final_at - clicked) * 1000))
        break
    check(done, "a double click on the strip added an opacity node")
    after = settled(t)

    # --- A slow trilinear final (sample distance 0.01) gives way to a key at once: the view
    # moved by the key shows as a preview while the final still had seconds to go.
    panel_click(t, panel, TRILINEAR)
    time.sleep(0.3)
    panel_click(t, panel, STEPSIZE, clicks=3)
    xdotool("type", "--delay", 50, "0.01")
    xdotool("key", "Return")
    preview = settled(t, after)  # the preview stays up while the final runs
    still = watch(sdl, 1.5)
    check(len(set(h for _, h, _ in still)) == 1, "the final is still running 1.5 s after its preview")
    pressed = time.time()
    t.key("s")
    moved = watch(sdl, 3.0)
    change = next((when for when, h, _ in moved if h != still[-1][1]), None)
    check(change is not None and change - pressed < 1.5,
          "a key during the trilinear final shows the moved view at once (%s)" %
          ("%.0f ms" % ((change - pressed) * 1000) if change else "no change in 3 s"))

    t.key("q")
    check(t.wait_exit() == 0, "q ends the program, also in the middle of a final")

finish()
