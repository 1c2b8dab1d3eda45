#!/usr/bin/env python3
"""A file that can't be loaded says why in the panel, where the user looks: a line in dark red
under the volume's sizes, gone again after a good load. A named pipe (or anything else that is
not a regular file) is refused at once instead of blocking the program in open()."""
import os
import tempfile

from guitest import Tavok, check, finish, options, write_dat

opts = options()
tmp = tempfile.mkdtemp()
good = write_dat(os.path.join(tmp, "good.dat"), (11, 9, 7), lambda x, y, z: 1800)
empty = os.path.join(tmp, "empty.dat")
with open(empty, "wb") as f:
    f.write(bytes([0, 0, 10, 0, 10, 0]))
pipe = os.path.join(tmp, "pipe.dat")
os.mkfifo(pipe)
missing = os.path.join(tmp, "missing.dat")

# The panel moved aside: the message line sits under the row of the sizes and "Blur Data".
MESSAGE_AREA = (0, 50, 475, 40)


def red_pixels(t, panel):
    x, y, w, h = MESSAGE_AREA
    area = t.screenshot(panel).crop(x, y, w, h)
    return area.count(lambda p: (p >> 16) >= 0x80 and ((p >> 8) & 255) < 0x50 and (p & 255) < 0x50)


for name, reason in ((missing, "can't open file " + missing),
                     (empty, "file %s holds no samples: its size is 0 x 10 x 10" % empty),
                     (pipe, "can't read %s: it is not a regular file" % pipe)):
    with Tavok(opts, [name]) as t:
        check(t.wait_out("^" + reason + "$", timeout=20) is not None, "%s: the log line %r" % (os.path.basename(name), reason))
        panel = t.panel_aside()
        check(red_pixels(t, panel) > 50, "%s: the reason shows in the panel" % os.path.basename(name))
        check(t.proc.poll() is None, "%s: still running" % os.path.basename(name))
        t.key("q")
        check(t.wait_exit() == 0, "%s: q ends it" % os.path.basename(name))

# A good file shows no such line.
with Tavok(opts, [good]) as t:
    t.wait_out(r"^Orlen-data")
    panel = t.panel_aside()
    check(red_pixels(t, panel) == 0, "a good file: no message in the panel")
    t.key("q")
    check(t.wait_exit() == 0, "a good file: q ends it")

finish()
