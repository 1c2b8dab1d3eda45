#!/usr/bin/env python3
"""Resizing the SDL window (the 100-pixel rule) and closing the control panel."""
import os
import tempfile
import time

from guitest import Tavok, check, finish, options, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
cube = write_dat(os.path.join(tmp, "cube.dat"), (9, 11, 13), lambda x, y, z: 2000)

with Tavok(opts, [cube]) as t:
    t.wait_out(r"^Orlen-data")
    # Without a window manager the panel opens over the SDL window: out of the way first.
    xdotool("windowmove", "--sync", t.panel_window(), 850, 0)
    window = t.sdl_window()
    start = t.out_count()
    xdotool("windowsize", window, 800, 300)
    line = t.wait_out(r"^RESIZED", start=start)
    check(line == "RESIZED: desired: 800 300  actually: 800 300", "resize to 800 x 300: %r" % line)
    # Too narrow: the request is dropped, nothing is reallocated, and the window goes back to
    # the size it keeps. A drag on a window smaller than its image used to hang both windows
    # (the grab warped the pointer outside the window and waited for it): every button now.
    for size in ((100, 300), (87, 98)):
        start = t.out_count()
        xdotool("windowsize", window, *size)
        check(t.wait_out(r"^RESIZED", timeout=2, start=start) is None, "%d x %d is ignored" % size)
        deadline = time.time() + 5
        while time.time() < deadline and t.geometry(window)[2:] != (800, 300):
            time.sleep(0.1)
        check(t.geometry(window)[2:] == (800, 300), "%d x %d: the window is back at 800 x 300 (%r)"
              % (size + (t.geometry(window)[2:],)))
        # Each drag runs into the window's left edge, where SDL warps a grabbed pointer back
        # to the middle of its image.
        for button in (1, 2, 3):
            t.drag_relative(40, 40, -80, 10, button=button)
        start = t.out_count()
        t.key("p")
        if not check(t.wait_out(r"^ipos ", timeout=10, start=start) is not None,
                     "%d x %d: after drags with each button the window answers" % size):
            print("\n".join(t.out_lines[-15:]))
    start = t.out_count()
    xdotool("windowsize", window, 101, 101)
    line = t.wait_out(r"^RESIZED", start=start)
    check(line == "RESIZED: desired: 101 101  actually: 101 101", "101 x 101 is carried out: %r" % line)
    check(t.proc.poll() is None, "still running after the resizes")

    # Closing the panel ends the program.
    xdotool("windowclose", t.panel_window())
    status = t.wait_exit()
    check(status == 0, "panel closed: exit status 0 (got %r)" % status)
    check("GUI - clean up!" in t.stderr(), "panel closed: message on standard error")
    check("delete event occured" in t.stdout(), "panel closed: the destroy handler's log line")

finish()
