#!/usr/bin/env python3
"""An idle tavok costs nearly nothing: with nothing to render (the final pass done) it sleeps
until the next event, whether the panel or the image window has the focus, and it still
answers a key at once. The bounds are generous (the machine is shared); bench/bench_idle.py
reports the real figures. The context switches a second don't depend on the machine's load:
a loop that runs frame after frame makes thousands, a sleeping one a handful."""
import os
import tempfile
import time

from guitest import Tavok, check, finish, idle_figures, options, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
ball = write_dat(os.path.join(tmp, "ball.dat"), (41, 37, 23),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else 0)

with Tavok(opts, [ball]) as t:
    t.wait_out(r"^Orlen-data")
    panel = t.switch_to_3d()
    # The cuberille view, then its final pass: the picture stands still.
    shot = t.settled_screenshot()

    xdotool("windowfocus", "--sync", panel)
    t.settle(1.0)
    cpu, switches = idle_figures(t.proc.pid, 5.0)
    check(cpu < 10.0, "panel focused: idle CPU %.2f %% of a core (bound 10 %%)" % cpu)
    check(switches < 50.0, "panel focused: %.1f context switches a second (bound 50)" % switches)

    t.focus_sdl()
    xdotool("mousemove", "--sync", 256, 200)
    t.settle(1.0)
    cpu, switches = idle_figures(t.proc.pid, 5.0)
    check(cpu < 10.0, "image window focused: idle CPU %.2f %% of a core (bound 10 %%)" % cpu)
    check(switches < 50.0, "image window focused: %.1f context switches a second (bound 50)" % switches)

    # Asleep, it still answers: a key moves the camera and a new picture comes.
    t.key("a")
    after = t.settled_screenshot(previous=shot)
    check(after.differs(shot), "a key after the idle time brings a new picture")
    start = t.out_count()
    t.key("p")
    check(t.wait_out(r"^ipos ", timeout=5, start=start) is not None, "and p answers")
    t.key("q")
    check(t.wait_exit() == 0, "q quits")

finish()
