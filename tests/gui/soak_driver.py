#!/usr/bin/env python3
"""soak_driver.py — random input on the real windows for a while, then a check that tavok is
still alive and answering, with nothing bad in its log. Run by scripts/soak, which builds the
ASan + UBSan tavok for it:

    soak_driver.py --tavok BUILD-ASAN/tavok --build BUILD-ASAN --source . --seconds 60 [--seed 1]

About nine actions a second, chosen with a fixed seed: key taps and holds in the image window
(every key of the table but q and Escape), clicks, double clicks and drags of every button on
the image, the opacity area and the colour bar, presses of two buttons at once released in
either order, resizes of the image window to any size from 40 x 40 up (tiny ones included),
clicks, wheel turns and typing anywhere in the panel (its tabs, buttons, sliders, fields, the
file chooser), and, when a dialog is up, clicks in it, Escape on it, or nothing. The panel is
moved beside the image window first; dialogs open where GTK puts them, often over the image.

At the end: every dialog is closed with Escape, the image window must answer p with the
camera, and q must end the program with status 0. The run passes when that holds and the log
has no sanitizer report ("ERROR: AddressSanitizer", "runtime error:") and no GTK critical or
warning of GLib's ("CRITICAL", "-WARNING"). The action log (--log) tells what was done when.
"""
import os
import random
import subprocess
import sys
import tempfile
import time

from guitest import Tavok, check, finish, options, write_dat, xdotool

opts = options(lambda p: (p.add_argument("--seconds", type=float, default=60.0),
                          p.add_argument("--seed", type=int, default=1),
                          p.add_argument("--log", default=None)))
opts.tavok, opts.build = os.path.abspath(opts.tavok), os.path.abspath(opts.build)
rng = random.Random(opts.seed)
work = tempfile.mkdtemp(prefix="tavok-soak-")
# tavok runs with HOME here; GTK keeps the chooser's recent files under ~/.local/share, as in
# every user's home, and warns when it can't.
os.makedirs(os.path.join(work, ".local", "share"))
# The volume: a small phantom (ASan is slow), and beside it what the chooser may find there.
volume = os.path.join(work, "phantom.dat")
subprocess.run([os.path.join(opts.build, "make-phantom"), volume, "--size", "72", "72", "60"],
               check=True, stdout=subprocess.DEVNULL)
write_dat(os.path.join(work, "ball.dat"), (21, 19, 17),
          lambda x, y, z: 2600 if (x - 10) ** 2 + (y - 9) ** 2 + (z - 8) ** 2 < 40 else 0)
with open(os.path.join(work, "short.dat"), "wb") as f:
    f.write(bytes([9, 0, 9, 0, 9, 0, 1, 2]))
with open(os.path.join(work, "empty.dat"), "wb") as f:
    f.write(bytes([0, 0, 5, 0, 5, 0]))
os.mkfifo(os.path.join(work, "pipe.dat"))

TABLE_KEYS = ["w", "a", "s", "d", "r", "f", "p", "Up", "Down", "Left", "Right", "Prior", "Next",
              "Home", "End", "9", "0", "KP_Add", "KP_Subtract", "KP_0", "Control_R",
              "shift+w", "shift+s", "Shift_R+a"]
log_file = open(opts.log, "w") if opts.log else None
started = time.time()


events = 0


def send(*args):
    """An xdotool call that sends input; counts the events it makes."""
    global events
    word = args[0]
    if word in ("key",):
        events += 2 * (len(args) - 1)
    elif word == "type":
        events += 2 * len(args[-1])
    elif word == "click":
        repeat = int(args[args.index("--repeat") + 1]) if "--repeat" in args else 1
        events += 2 * repeat
    else:
        events += 1
    return xdotool(*args)


def note(text):
    if log_file:
        log_file.write("%8.2f %s\n" % (time.time() - started, text))
        log_file.flush()


def dialogs(t, main_windows):
    """Visible windows of the program other than the image window and the panel that a user
    can focus: dialogs, not menus or tooltips (override-redirect popups)."""
    found = []
    for w in xdotool("search", "--onlyvisible", "--pid", str(t.proc.pid)).split():
        if w in main_windows or w in found:
            continue
        info = subprocess.run(["xwininfo", "-id", w], capture_output=True, text=True).stdout
        if "Override Redirect State: no" in info and "Map State: IsViewable" in info:
            found.append(w)
    return found


def focus(window):
    """Gives window the keyboard focus; False when it can't have it (gone meanwhile)."""
    xdotool("windowfocus", window)
    time.sleep(0.15)
    return xdotool("getwindowfocus") == window


def image_size(t, window):
    _, _, w, h = t.geometry(window)
    return w, h


def act(t, window, panel, main_windows):
    w, h = image_size(t, window)
    image_h = h * 4 // 5
    open_dialogs = dialogs(t, main_windows)
    if open_dialogs and rng.random() < 0.35:
        d = rng.choice(open_dialogs)
        dx, dy, dw, dh = t.geometry(d)
        choice = rng.random()
        if choice < 0.4:
            note("escape on dialog %s" % d)
            send("mousemove", "--window", d, dw // 2, dh // 2)
            if focus(d):
                send("keydown", "Escape")
                time.sleep(rng.uniform(0.03, 0.2))
                send("keyup", "Escape")
        else:
            x, y = rng.randrange(dw), rng.randrange(dh)
            note("click %d,%d in dialog %s" % (x, y, d))
            send("mousemove", "--window", d, x, y)
            send("click", rng.choice([1, 1, 1, 3]))
        time.sleep(0.4)
        return
    kind = rng.random()
    if kind < 0.22:  # keys in the image window
        key = rng.choice(TABLE_KEYS)
        t.focus_sdl()
        if rng.random() < 0.6:
            note("tap %s" % key)
            send("key", key)
        else:
            hold = rng.uniform(0.05, 0.6)
            note("hold %s %.2f s" % (key, hold))
            keys = key.split("+")
            for k in keys:
                send("keydown", k)
            time.sleep(hold)
            for k in reversed(keys):
                send("keyup", k)
    elif kind < 0.50:  # the mouse on the image window
        x = rng.randrange(max(w, 1))
        zone = rng.random()
        y = rng.randrange(max(image_h, 1)) if zone < 0.4 else rng.randrange(image_h, max(h, image_h + 1))
        button = rng.choice([1, 1, 1, 2, 3, 3])
        style = rng.random()
        send("mousemove", "--window", window, x, y)
        time.sleep(0.05)
        if style < 0.3:
            note("click %d at %d,%d" % (button, x, y))
            send("click", button)
        elif style < 0.5:
            note("double click %d at %d,%d" % (button, x, y))
            for held in (0.04, rng.choice([0.06, 0.15, 0.3])):
                send("mousedown", button)
                time.sleep(held)
                send("mouseup", button)
                time.sleep(0.04)
        elif style < 0.8:
            steps = rng.randrange(2, 10)
            note("drag %d from %d,%d, %d steps" % (button, x, y, steps))
            send("mousedown", button)
            for _ in range(steps):
                send("mousemove_relative", "--", rng.randint(-60, 60), rng.randint(-60, 60))
                time.sleep(0.03)
            send("mouseup", button)
        else:
            a, b = rng.sample([1, 2, 3], 2)
            note("press %d then %d at %d,%d" % (a, b, x, y))
            send("mousedown", a)
            time.sleep(0.1)
            send("mousemove_relative", "--", rng.randint(-80, 80), rng.randint(-80, 80))
            send("mousedown", b)
            time.sleep(0.1)
            send("mousemove_relative", "--", rng.randint(-80, 80), rng.randint(-80, 80))
            first, second = (a, b) if rng.random() < 0.5 else (b, a)
            send("mouseup", first)
            time.sleep(0.1)
            send("mouseup", second)
    elif kind < 0.56:  # resize the image window
        nw, nh = rng.choice([(rng.randint(40, 140), rng.randint(40, 140)),
                             (rng.randint(100, 900), rng.randint(100, 800))])
        note("resize to %dx%d" % (nw, nh))
        xdotool("windowsize", window, nw, nh)
        time.sleep(0.3)
    else:  # the panel
        px, py, pw, ph = t.geometry(panel)
        x, y = rng.randrange(pw), rng.randrange(ph)
        send("mousemove", "--sync", px + x, py + y)
        style = rng.random()
        if style < 0.6:
            note("panel click at %d,%d" % (x, y))
            send("click", 1)
        elif style < 0.8:
            b = rng.choice([4, 5])
            note("panel wheel %d at %d,%d" % (b, x, y))
            send("click", "--repeat", rng.randint(1, 5), b)
        elif style < 0.9:
            text = rng.choice(["0.5", "-3", "12", "1", "0"])
            note("panel typing %r at %d,%d then Tab" % (text, x, y))
            send("click", "--repeat", 3, "--delay", 30, 1)
            send("type", "--delay", 20, text)
            send("key", "Tab")
        else:
            note("panel drag at %d,%d" % (x, y))
            send("mousedown", 1)
            for _ in range(rng.randrange(2, 8)):
                send("mousemove_relative", "--", rng.randint(-40, 40), rng.randint(-20, 20))
                time.sleep(0.03)
            send("mouseup", 1)


env = {"ASAN_OPTIONS": "detect_leaks=0", "UBSAN_OPTIONS": "print_stacktrace=1", "HOME": work}
os.chdir(work)
with Tavok(opts, [volume], env=env) as t:
    check(t.wait_out(r"^Orlen-data", timeout=120) is not None, "the volume loads")
    window = t.sdl_window()
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 700, 0)
    main_windows = {window, panel}
    time.sleep(1.0)
    actions, deadline = 0, time.time() + opts.seconds
    while time.time() < deadline and t.proc.poll() is None:
        act(t, window, panel, main_windows)
        actions += 1
        time.sleep(rng.uniform(0.0, 0.06))
    note("end after %d actions" % actions)
    span = time.time() - started
    print("%d actions, %d input events in %.0f s: %.1f events a second" % (actions, events, span, events / span),
          flush=True)
    alive = check(t.proc.poll() is None, "tavok is alive after %d actions" % actions)
    if alive:
        # Close every dialog; a screenshot dialog runs its own loop and holds the frames.
        for _ in range(10):
            open_dialogs = dialogs(t, main_windows)
            if not open_dialogs:
                break
            for d in open_dialogs:
                note("closing dialog %s" % d)
                xdotool("windowmove", "--sync", d, 700, 620)
                xdotool("mousemove", "--window", d, 20, 20)
                if focus(d):
                    send("key", "Escape")
                time.sleep(1.0)
        check(not dialogs(t, main_windows), "every dialog closed")
        xdotool("windowsize", "--sync", window, 512, 512)
        time.sleep(1.0)
        start = t.out_count()
        t.key("p", hold_ms=200)
        check(t.wait_out(r"^ipos ", timeout=60, start=start) is not None, "the image window answers p")
        t.key("q", hold_ms=200)
        status = t.wait_exit(timeout=120)
        check(status == 0, "q ends it with status 0 (got %r)" % status)
    else:
        print("tavok ended: status %r" % t.proc.poll())
    t.wait_exit(timeout=10)
    err, out = t.stderr(), t.stdout()
    report = [l for l in (err + "\n" + out).split("\n")
              if "ERROR: AddressSanitizer" in l or "runtime error:" in l or "CRITICAL" in l
              or "-WARNING" in l or "LeakSanitizer" in l]
    check(not report, "no sanitizer report, no GTK critical or warning%s"
          % ("" if not report else ":\n  " + "\n  ".join(report[:20])))
    if t.proc.poll() not in (0, None) or report:
        print("--- standard error (last 60 lines):\n" + "\n".join(err.split("\n")[-60:]))

finish()
