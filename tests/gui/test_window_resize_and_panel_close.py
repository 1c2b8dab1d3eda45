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
    window = t.sdl_window()
    start = t.out_count()
    xdotool("windowsize", window, 800, 300)
    line = t.wait_out(r"^RESIZED", start=start)
    check(line == "RESIZED: desired: 800 300  actually: 800 300", "resize to 800 x 300: %r" % line)
    # Too narrow: the request is dropped, nothing is reallocated.
    start = t.out_count()
    xdotool("windowsize", window, 100, 300)
    check(t.wait_out(r"^RESIZED", timeout=2, start=start) is None, "100 x 300 is ignored")
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
