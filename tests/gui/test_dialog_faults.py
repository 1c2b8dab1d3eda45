#!/usr/bin/env python3
"""Faults of the windows around dialogs, each reproduced as a user met it:

1. "Select A Color" closed with Escape gave a GTK critical (the dialog was destroyed inside its
   own "close" signal). Now it closes cleanly, and the node the double click placed stays with
   the colour it was placed with (the last accepted one, black at first), which the colour
   table now shows.
2. The Escape that closes a dialog lying over the image window also quit tavok: the key was
   down when the image window got the focus back. Keys now act only when they went down in
   the image window. Both "Select A Color" and the "Load Volume" chooser's dialog.
3. A double click that opened "Select A Color" while the right button held the pointer grabbed
   left the grab and the hidden cursor on, and the left button "down" for good: the pointer
   could not leave the image window. Opening a dialog now gives the pointer back.

tavok runs with G_DEBUG=fatal-criticals, so that any GTK critical ends it.
"""
import os
import tempfile
import time

from guitest import Tavok, check, finish, options, write_dat, xdotool

opts = options()
tmp = tempfile.mkdtemp()
# Densities rise along x from 600 to 3575, so that the colour bar shows a grey ramp.
ramp = write_dat(os.path.join(tmp, "ramp.dat"), (120, 100, 9), lambda x, y, z: 600 + 25 * x)
ENV = {"G_DEBUG": "fatal-criticals"}

IMAGE_H = 409
BAR_Y = IMAGE_H + 91            # a row of the colour bar of a 512 x 512 window
CHOOSER_BUTTON = (278, 12)      # "Load Volume:" in the panel, moved to (600, 0)


def start(t):
    t.wait_out(r"^transferfunc surface is")
    panel = t.panel_aside()
    t.settle(0.3)
    return panel


def escape_on(window):
    """The pointer on the window, and Escape. With no window manager the keyboard follows the
    pointer (unless a window took the focus itself), as it did for the user."""
    xdotool("mousemove", "--window", window, 40, 40)
    time.sleep(0.3)
    # Held as a hand holds it: still down when the dialog is gone.
    xdotool("keydown", "Escape")
    time.sleep(0.15)
    xdotool("keyup", "Escape")


def clean_log(t, what, quit_by_q=False):
    check("CRITICAL" not in t.stderr() and "CRITICAL" not in t.stdout(), "%s: no GTK critical" % what)
    if not quit_by_q:
        check("<ESC> or <q> pressed" not in t.stderr(), "%s: tavok did not quit" % what)


# --- 1 and 2: "Select A Color" over the image window, closed with Escape.
with Tavok(opts, [ramp], env=ENV) as t:
    start(t)
    bar_before = t.screenshot().at(250, BAR_Y)
    check(bar_before not in (0, 0xcccccc), "the bar shows the grey ramp: %06x" % bar_before)
    mark = t.out_count()
    check(t.double_click(300, BAR_Y, r"^inserted new colornode$", mark), "a double click on the bar places a node")
    dialog = t.dialog_window()
    check(dialog is not None, "\"Select A Color\" is up")
    if dialog:
        x, y, w, h = t.geometry(dialog)
        check(x < 512 and y < 512, "the dialog lies over the image window (at %d, %d)" % (x, y))
        t.settle(0.5)
        escape_on(dialog)
        time.sleep(1.0)
        check(xdotool("search", "--onlyvisible", "--name", "^Select A Color$") == "", "Escape closes the dialog")
        t.settle(1.5)
        check(t.proc.poll() is None, "tavok still runs after Escape on the dialog")
        clean_log(t, "colour dialog")
    if dialog and t.proc.poll() is None:
        # The node stays, black (cs_color was never changed), and the table now shows it: the
        # bar left of the node runs from black to black.
        shot = t.screenshot()
        check(shot.at(250, BAR_Y) == 0, "the bar left of the node is black now: %06x" % shot.at(250, BAR_Y))
        check(shot.at(296, BAR_Y) == 0, "the bar just left of the node is black: %06x" % shot.at(296, BAR_Y))
        check(shot.at(480, BAR_Y) not in (0, bar_before), "right of the node the bar runs to white")
    if t.proc.poll() is None:
        t.key("q")
        check(t.wait_exit() == 0, "q still quits, with status 0")
    clean_log(t, "after the colour dialog", quit_by_q=True)

# --- 2: the "Load Volume" chooser's dialog over the image window, closed with Escape.
with Tavok(opts, [ramp], env=ENV) as t:
    panel = start(t)
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + CHOOSER_BUTTON[0], py + CHOOSER_BUTTON[1])
    xdotool("click", 1)
    dialog = t.dialog_window("^Select A File$")
    check(dialog is not None, "the chooser's dialog is up")
    if dialog:
        x, y, w, h = t.geometry(dialog)
        print("the chooser's dialog lies at %d, %d, %d x %d" % (x, y, w, h))
        if x >= 512 or y >= 512:
            xdotool("windowmove", "--sync", dialog, 0, 0)
        t.settle(1.0)
        escape_on(dialog)
        t.settle(1.5)
        check(xdotool("search", "--onlyvisible", "--name", "^Select A File$") == "", "Escape closes the chooser's dialog")
        check(t.proc.poll() is None, "tavok still runs after Escape on the chooser's dialog")
        clean_log(t, "chooser")
    if t.proc.poll() is None:
        t.key("q")
        check(t.wait_exit() == 0, "q still quits")

# --- 3: the input lock. A window of 132 x 275: image rows 0..219, strip 220..274, colour bar
# 264..274. Left press on the bar, drag up into the image, right press (grabs the pointer),
# back down onto the bar, right release: the next frame counts a double click (a press held
# across frames, less than 150 ms after a button's release) and opens "Select A Color".
with Tavok(opts, [ramp], env=ENV) as t:
    start(t)
    window = t.sdl_window()
    mark = t.out_count()
    xdotool("windowsize", "--sync", window, 132, 275)
    check(t.wait_out(r"^RESIZED: desired: 132 275", start=mark) is not None, "resized to 132 x 275")
    t.settle(1.0)
    mark = t.out_count()
    t.press_at(60, 270, 1)
    time.sleep(0.2)
    for y in range(250, 99, -30):
        t.move(60, y)
        time.sleep(0.05)
    time.sleep(0.2)
    xdotool("mousedown", 3)
    time.sleep(0.3)
    # The grab may hide the pointer and take its motion as relative: move by the difference.
    for i in range(6):
        xdotool("mousemove_relative", "--", 0, 30)
        time.sleep(0.05)
    time.sleep(0.2)
    xdotool("mouseup", 3)
    dialog = t.dialog_window(timeout=5)
    check(dialog is not None, "the right release counted as a double click: \"Select A Color\" opened")
    time.sleep(0.3)
    xdotool("mouseup", 1)
    t.settle(0.5)
    # The pointer is free: it goes where it is sent, outside the image window.
    xdotool("mousemove", "--sync", 900, 700)
    time.sleep(0.3)
    loc = xdotool("getmouselocation")
    check("x:900 y:700" in loc, "the pointer can leave the image window (%s)" % loc)
    if dialog:
        escape_on(dialog)
        t.settle(1.0)
        check(xdotool("search", "--onlyvisible", "--name", "^Select A Color$") == "", "the dialog takes Escape")
    # The image window takes input again: a key reaches it.
    mark = t.out_count()
    t.key("p")
    check(t.wait_out(r"^ipos ", timeout=5, start=mark) is not None, "the image window answers p")
    check(t.proc.poll() is None, "tavok still runs")
    clean_log(t, "input lock")
    if t.proc.poll() is None:
        t.key("q")
        check(t.wait_exit() == 0, "q quits")

finish()
