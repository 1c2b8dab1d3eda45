#!/usr/bin/env python3
"""Start-up log, loading a file named on the command line, and the ways out: q, Escape,
Ctrl-C (SIGINT, which SDL turns into a quit event), and a bad file that changes nothing."""
import os
import signal
import tempfile

from guitest import Tavok, check, finish, options, write_dat

opts = options()
tmp = tempfile.mkdtemp()
ball = write_dat(os.path.join(tmp, "ball.dat"), (21, 19, 17),
                 lambda x, y, z: 1500 if (x - 10) ** 2 + (y - 9) ** 2 + (z - 8) ** 2 < 40 else 100)

# q ends the program with status 0.
with Tavok(opts, [ball]) as t:
    check(t.wait_out(r"^Orlen-data x=21, y=19, z=17$") is not None, "the load's log line")
    out = t.stdout().split("\n")
    check(out[:4] == ["tavok by Mara Quill", "https://tavok.org/", "", "Set 512x512x32 video mode"],
          "banner and video mode: %r" % out[:4])
    check(ball in out, "the load path prints the file name")
    t.settle(0.5)
    t.key("q")
    status = t.wait_exit()
    check(status == 0, "q: exit status 0 (got %r)" % status)
    check("<ESC> or <q> pressed. clean up!" in t.stderr(), "q: message on standard error")

# Escape does the same.
with Tavok(opts, [ball]) as t:
    t.wait_out(r"^Orlen-data")
    t.settle(0.3)
    t.key("Escape")
    check(t.wait_exit() == 0, "Escape: exit status 0")
    check("<ESC> or <q> pressed. clean up!" in t.stderr(), "Escape: message on standard error")

# Ctrl-C in the terminal: SIGINT becomes SDL_QUIT.
with Tavok(opts, [ball]) as t:
    t.wait_out(r"^Orlen-data")
    t.settle(0.3)
    t.proc.send_signal(signal.SIGINT)
    check(t.wait_exit() == 0, "SIGINT: exit status 0")
    check("Window-close or <CTRL-C>. clean up!" in t.stderr(), "SIGINT: message on standard error")

# A file that can't be read is refused with a message, and the program goes on.
missing = os.path.join(tmp, "missing.dat")
with Tavok(opts, [missing]) as t:
    check(t.wait_out("can't open file " + missing) is not None, "missing file: message")
    t.settle(0.5)
    check(t.proc.poll() is None, "missing file: still running")
    t.key("q")
    check(t.wait_exit() == 0, "missing file: q still works")

# With no file the window opens and waits.
with Tavok(opts, []) as t:
    check(t.wait_out("Set 512x512x32 video mode") is not None, "no file: window opens")
    t.settle(0.5)
    check(t.proc.poll() is None, "no file: still running")
    t.key("q")
    check(t.wait_exit() == 0, "no file: q ends it")

finish()
