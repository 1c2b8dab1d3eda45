#!/usr/bin/env python3
"""The movement keys at a human pace, with real keys under X: a tap moves the camera one step
of 15 voxels, a key held for a second about 25 steps (one at the press, one per 40 ms after),
however fast the frames come; p prints the camera once per press, however long it is held."""
import os
import re
import tempfile
import time

from guitest import Tavok, check, finish, options, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
ball = write_dat(os.path.join(tmp, "ball.dat"), (41, 37, 23),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else 0)


def camera(t):
    """ipos as printed by p (one press), and the number of times it was printed."""
    start = t.out_count()
    t.key("p", hold_ms=60)
    line = t.wait_out(r"^ipos ", timeout=10, start=start)
    time.sleep(0.3)
    return tuple(float(v) for v in line[5:].split(",")) if line else None


with Tavok(opts, [ball]) as t:
    t.wait_out(r"^Orlen-data")
    t.switch_to_3d()
    t.settle(1.0)

    before = camera(t)
    check(before is not None, "p prints the camera: %r" % (before,))
    # The camera looks along ifor; after the switch to 3D it is the slice plane's normal, so
    # the distance moved is measured along the line between the two positions.
    def moved(a, b):
        return sum((x - y) ** 2 for x, y in zip(a, b)) ** 0.5

    # A tap: press and release in a few milliseconds, between two frames or not.
    t.focus_sdl()
    xdotool("key", "s")
    time.sleep(0.5)
    after_tap = camera(t)
    d = moved(before, after_tap)
    check(abs(d - 15.0) < 0.01, "a tap of s moves one step of 15 voxels (moved %.3f)" % d)

    # Held for a second.
    t.focus_sdl()
    xdotool("keydown", "w")
    time.sleep(1.0)
    xdotool("keyup", "w")
    time.sleep(0.5)
    after_hold = camera(t)
    steps = moved(after_tap, after_hold) / 15.0
    check(abs(steps - round(steps)) < 0.01, "whole steps of 15 (%.3f steps)" % steps)
    # 25 at the program's clock; the key's events cross the X server, so a few either way.
    check(22 <= steps <= 28, "w held for a second moves about 25 steps (%.2f)" % steps)

    # p held for half a second prints once.
    start = t.out_count()
    t.key("p", hold_ms=500)
    time.sleep(0.5)
    prints = sum(1 for l in t.out_lines[start:] if l.startswith("ipos "))
    check(prints == 1, "p held for half a second prints once (%d)" % prints)

    t.key("q")
    check(t.wait_exit() == 0, "q quits")

finish()
