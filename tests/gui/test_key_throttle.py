#!/usr/bin/env python3
"""The movement keys at a human pace, with real keys under X: a tap moves the camera one step
of 15 voxels, a key held for a second about 25 steps (one at the press, one per 40 ms after),
however fast the frames come; p prints the camera once per press, however long it is held.

The held key goes down and up through XTEST from this process, each call waiting for the X
server (XSync), and the hold is timed around those calls: the steps are checked against the
hold the server really saw, not against the sleep asked for. (xdotool, a process started for
each call, can come a tenth of a second late on a busy machine, which a hold timed around it
counts as steps.) What is left is how late tavok sees the press and the release: a frame
and the scheduler's delays, bounded by SEEN_LATE. On a loaded machine the X server or tavok
can still stall for a tenth of a second; a step that falls due in a stall that ends with the
release is lost, and a release that reaches tavok late adds steps. Such noise comes and goes,
while a wrong pace shows on every hold: a hold that misses its bounds is tried again, up to
HOLDS times, each against its own measured hold."""
import os
import tempfile
import time

from guitest import Tavok, XProbe, check, finish, options, write_dat

opts = options()
tmp = tempfile.mkdtemp()
ball = write_dat(os.path.join(tmp, "ball.dat"), (41, 37, 23),
                 lambda x, y, z: 3000 if (x - 20) ** 2 + (y - 18) ** 2 + (z - 11) ** 2 < 64 else 0)
# How much later tavok may see the release of a key than its press, or the other way round, in
# seconds: a frame or two of this small volume and the scheduler's delays on a shared machine.
SEEN_LATE = 0.05
STEP = 0.040  # the key throttle's step time
HOLDS = 3


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

    # A tap: press and release within a millisecond or two, between two frames or not.
    probe = XProbe()
    t.focus_sdl()
    probe.key("s", True)
    probe.key("s", False)
    time.sleep(0.5)
    after_tap = camera(t)
    d = moved(before, after_tap)
    check(abs(d - 15.0) < 0.01, "a tap of s moves one step of 15 voxels (moved %.3f)" % d)

    # Held for a second (and a half step more, so that a small lateness either way counts the
    # same): one step at the press and one for every 40 ms it stays down, 26 in all.

    def hold_w(seconds):
        """Holds w for seconds; returns the steps of 15 it moved, and the shortest and the
        longest hold the X server can have seen."""
        start = camera(t)
        t.focus_sdl()
        t0 = time.monotonic()
        probe.key("w", True)
        t1 = time.monotonic()
        time.sleep(seconds)
        t2 = time.monotonic()
        probe.key("w", False)
        t3 = time.monotonic()
        time.sleep(0.5)
        # The server took the press between t0 and t1 and the release between t2 and t3.
        return moved(start, camera(t)) / 15.0, t2 - t1, t3 - t0

    tries = []
    for _ in range(HOLDS):
        steps, shortest, longest = hold_w(1.02)
        fewest = 1 + int((shortest - SEEN_LATE) / STEP)
        most = 1 + int((longest + SEEN_LATE) / STEP)
        whole = abs(steps - round(steps)) < 0.01
        tries.append("held %.3f to %.3f s: %.2f steps, %d to %d expected" % (shortest, longest, steps, fewest, most))
        print(tries[-1], flush=True)
        if whole and fewest <= round(steps) <= most:
            break
    check(whole, "w held moves whole steps of 15 (%.3f steps)" % steps)
    check(whole and fewest <= round(steps) <= most,
          "w held for about a second moves one step at the press and one per 40 ms after (%s)"
          % "; ".join(tries))

    # p held for half a second prints once.
    start = t.out_count()
    t.key("p", hold_ms=500)
    time.sleep(0.5)
    prints = sum(1 for l in t.out_lines[start:] if l.startswith("ipos "))
    check(prints == 1, "p held for half a second prints once (%d)" % prints)

    t.key("q")
    check(t.wait_exit() == 0, "q quits")

finish()
