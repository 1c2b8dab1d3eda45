#!/usr/bin/env python3
"""The transfer function editor strip under the image, driven with the mouse: an opacity node
by double click, a colour node through the colour dialog (OK and Cancel), and removal with
the right button. The slice view, with "Use Transfer Function" on, shows both tables.

The window is 512 x 512: the image takes rows 0..408, the strip rows 409..511, of which the
opacity area is 409..491 (83 rows) and the colour bar 492..511. A strip column stands for 8
densities, so x 160 is density 1280 and x 300 density 2400.
"""
import os
import tempfile
import time

from guitest import Tavok, check, finish, options, write_dat, xdotool

IMAGE_H = 409
AREA_ROW = 70                 # a row of the opacity area: opacity 1 - 70/83
BAR_Y = IMAGE_H + 91          # a row on the colour bar

opts = options()
tmp = tempfile.mkdtemp()
# Densities rise along x from 600 to 3575, so every part of the tables shows in the slice.
ramp = write_dat(os.path.join(tmp, "ramp.dat"), (120, 100, 9), lambda x, y, z: 600 + 25 * x)


def image_rows(shot):
    return shot.crop(0, 0, 512, IMAGE_H)


def strip_pixel(shot, x, row):
    return shot.at(x, IMAGE_H + row)


with Tavok(opts, [ramp]) as t:
    check(t.wait_out(r"^transferfunc surface is 512 x 103$") is not None, "the strip is 512 x 103")
    # Without a window manager both windows open at the top left: the panel goes aside.
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    t.settle(1.0)
    grey_slice = t.screenshot()
    # "Use Transfer Function" of the Slices tab (a fixed place in the panel's layout): the
    # slice then weighs its colours with the opacity table, so opacity edits show in it.
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + 77, py + 94)
    xdotool("click", 1)
    t.settle(1.0)
    first = t.screenshot()
    check(image_rows(first).differs(image_rows(grey_slice)), "the slice uses the transfer function")

    # --- An opacity node by a double click in the opacity area.
    start = t.out_count()
    t.double_click(160, IMAGE_H + AREA_ROW, r"^opacity=", start)
    line = t.wait_out(r"^opacity=", timeout=5, start=start)
    check(line == "opacity=0.156627", "double click on the opacity area: %r" % line)
    check(t.wait_out(r"^inserted new opacitynode$", timeout=5, start=start) is not None,
          "inserted new opacitynode")
    t.settle(1.0)
    shot = t.screenshot()
    # The node's black square sits on its row; the default curve passed well above it.
    square = [strip_pixel(shot, x, row) for x in (159, 160, 161) for row in (68, 69, 70, 71)]
    check(square.count(0) >= 6, "the new node's square in the strip")
    check(strip_pixel(first, 160, 70) != 0, "no square there before")
    check(image_rows(shot).differs(image_rows(first)), "the image follows the opacity table")

    # --- A colour node: double click on the bar, type a colour, OK.
    start = t.out_count()
    check(t.double_click(300, BAR_Y, r"^inserted new colornode$", start),
          "double click on the bar places a colour node")
    dialog = t.dialog_window()
    check(dialog is not None, "the dialog \"Select A Color\" is up")
    if dialog:
        t.settle(0.5)
        # The colour name entry, then OK, at their places in the unresized dialog.
        xdotool("mousemove", "--window", dialog, 345, 131)
        xdotool("click", "--repeat", 3, "--delay", 30, 1)  # select the whole text
        xdotool("type", "--delay", 20, "#ff0000")
        xdotool("key", "Return")
        t.settle(0.3)
        xdotool("mousemove", "--window", dialog, 480, 253)
        xdotool("click", 1)
        check(t.wait_out(r"^color select OK$", timeout=5, start=start) is not None, "color select OK")
        line = t.wait_out(r"^cs_color=", timeout=5, start=start)
        check(line == "cs_color=ff0000", "the colour accepted: %r" % line)
        check(t.wait_out(r"^color changed$", timeout=5, start=start) is not None, "color changed")
        t.settle(1.0)
        shot = t.screenshot()
        check(strip_pixel(shot, 300, 100) == 0xff0000, "the bar is red at the node")
        check(image_rows(shot).differs(image_rows(first)), "the image follows the colour table")
        check(image_rows(shot).count(lambda p: (p >> 16) > (p >> 8 & 0xff) + 40) > 100,
              "red shows in the slice")
        check(t.dialog_window(timeout=0.5) is None, "the dialog is gone after OK")

    # --- Cancel removes the node that the double click placed.
    start = t.out_count()
    check(t.double_click(400, BAR_Y, r"^inserted new colornode$", start), "a second colour node")
    dialog = t.dialog_window()
    if dialog:
        t.settle(0.5)
        xdotool("mousemove", "--window", dialog, 383, 253)
        xdotool("click", 1)
        check(t.wait_out(r"^color select Cancel$", timeout=5, start=start) is not None,
              "color select Cancel")
        check(t.wait_out(r"^test remove colornode scx=400!$", timeout=5, start=start) is not None,
              "Cancel looks for the node at its place")
        check(t.wait_out(r"^removed colornode!$", timeout=5, start=start) is not None,
              "Cancel removes the new node")

    # --- The right button removes nodes: the colour node on the bar, the opacity node above.
    t.settle(0.5)
    start = t.out_count()
    t.tap_at(300, BAR_Y, button=3, hold_ms=120)
    check(t.wait_out(r"^removed colornode!$", timeout=5, start=start) is not None,
          "right press on the colour node removes it")
    start = t.out_count()
    t.tap_at(160, IMAGE_H + 30, button=3, hold_ms=120)
    check(t.wait_out(r"^removed colornode!$", timeout=5, start=start) is not None,
          "right press on the opacity node's column removes it")
    t.settle(1.0)
    shot = t.screenshot()
    square = [strip_pixel(shot, x, row) for x in (159, 160, 161) for row in (68, 69, 70, 71)]
    check(square.count(0) < 6, "the opacity node's square is gone")
    check(strip_pixel(shot, 300, 100) != 0xff0000, "the bar has lost its red")

    t.key("q")
    check(t.wait_exit() == 0, "q ends the program with status 0")
    check("freed 2 color nodes and 2 opacity nodes" in t.stdout(), "the exit frees the two end nodes of each list")

finish()
