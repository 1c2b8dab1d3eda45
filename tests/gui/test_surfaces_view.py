#!/usr/bin/env python3
"""Region boundary surfaces and isovalue contour surfaces from the panel: on the phantom, the
3D view, then the "RBS" and the "ICS" tab each draw a picture of their own, with a render time;
with trilinear interpolation at a short sample distance the final pass takes many seconds, and
a key pressed while it runs stops it at once: the new preview shows within a few seconds, long
before the old final could have finished."""
import time

from guitest import Tavok, check, finish, options, phantom, render_time_ink, xdotool

opts = options()

IMAGE_W, IMAGE_H = 512, 409
# Places in the panel, moved to 600, 0 (its layout is fixed): the toggle "3D View / Slice
# View" on the Slices tab, the "3D" tab, its render mode tabs, the trilinear radio button and
# its sample distance, and the render time entry.
SWITCH_3D = (140, 220)
TAB_3D = (35, 123)
TAB_RBS = (224, 167)
TAB_ICS = (259, 167)
TRILINEAR = (77, 136)
STEPSIZE = (410, 138)


def settled(t, previous=None):
    return t.settled_screenshot(previous, crop=(0, 0, IMAGE_W, IMAGE_H))


def image_now(t):
    return t.screenshot().crop(0, 0, IMAGE_W, IMAGE_H)


def lit(shot):
    return shot.count(lambda p: p != 0)


def until_changed(t, reference, timeout):
    """Seconds until the image differs from reference, or None within timeout."""
    start = time.monotonic()
    while time.monotonic() - start < timeout:
        if image_now(t).differs(reference):
            return time.monotonic() - start
        time.sleep(0.05)
    return None


with Tavok(opts, [phantom(opts)]) as t:
    check(t.wait_out(r"^Orlen-data x=192, y=192, z=160$") is not None, "the phantom's log line")
    panel = t.panel_window()
    xdotool("windowmove", "--sync", panel, 600, 0)
    t.settle(0.8)
    px, py, _, _ = t.geometry(panel)

    def click(place, settle=0.3):
        xdotool("mousemove", "--sync", px + place[0], py + place[1])
        xdotool("click", "1")
        t.settle(settle)

    slices = settled(t)
    click(SWITCH_3D)
    cuberille = settled(t, slices)
    click(TAB_3D)

    # Region boundary surfaces: a picture of its own, not black, and a render time.
    click(TAB_RBS, 0.1)
    rbs = settled(t, cuberille)
    check(rbs.differs(cuberille), "the RBS tab draws its own picture")
    check(lit(rbs) > IMAGE_W * IMAGE_H // 20, "the phantom shows in region boundary surfaces (%d lit)" % lit(rbs))
    t.settle(0.5)
    check(render_time_ink(t, panel) > 10, "the rbs final put its render time into GUIrendertime")

    # Isovalue contour surfaces: the shell at the isovalue 2048.
    click(TAB_ICS, 0.1)
    ics = settled(t, rbs)
    check(ics.differs(rbs), "the ICS tab draws its own picture")
    check(lit(ics) > IMAGE_W * IMAGE_H // 20, "the phantom shows in isovalue contour surfaces (%d lit)" % lit(ics))

    # Back to RBS, trilinear at a sample distance of 0.05: a final of many seconds on any
    # machine (fourteen times the samples of the default 0.7), which shows its image only at
    # its end. A key pressed while it runs must bring the next preview within a few seconds.
    click(TAB_RBS, 0.1)
    settled(t, ics)
    xdotool("mousemove", "--sync", px + STEPSIZE[0], py + STEPSIZE[1])
    xdotool("click", "--repeat", "3", "1")
    xdotool("type", "0.05")
    xdotool("key", "Return")
    settled(t)  # the bilinear final of the new distance (which doesn't use it) has run
    click(TRILINEAR, 0.0)
    preview = settled(t)  # the preview stays up while the trilinear final runs
    check(lit(preview) > IMAGE_W * IMAGE_H // 20, "the trilinear preview shows the phantom")
    t.settle(0.5)  # the final is under way
    t.focus_sdl()
    xdotool("keydown", "Shift_R")
    xdotool("keydown", "s")
    t.settle(0.04)
    xdotool("keyup", "s")
    xdotool("keyup", "Shift_R")
    reacted = until_changed(t, preview, 60)
    check(reacted is not None and reacted < 8.0,
          "a key stops the running final at once (%s)" % (
              "the next preview after %.2f s" % reacted if reacted is not None else "no change in 60 s"))

    # q, pressed while the next long final runs, ends the program from inside it.
    t.key("q")
    check(t.wait_exit() == 0, "q ends the program")

finish()
