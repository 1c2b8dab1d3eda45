#!/usr/bin/env python3
"""Interpolated first hit in the real windows: load the phantom, open the 3D tab, choose
"Isovalue (Density)", then bilinear interpolation, and move the isovalue slider from the skull
(2048) down to the skin: the lit isosurface changes, grows (the skin wraps the skull) and is
shaded from dark to bright; the final pass puts its render time into the panel. Then, back on
the skull with "Use Occlusion Data for Rendering", "Precalculate Occlusions" with soft
shadows: a key pressed while the worker runs moves the camera at once, the shadow bar moves,
and the skull comes out darker where the shadows fall (and lighter where the light reaches
it) than with the load's half light.

The phantom is made at 256 x 256 x 240 here, so that the calculation lasts a few seconds even
on an idle machine: long enough to see the bar move."""
import os
import subprocess
import tempfile
import time

from guitest import Tavok, check, finish, options, render_time_ink, xdotool

opts = options()
volume = os.path.join(tempfile.mkdtemp(), "phantom-256.dat")
subprocess.run([os.path.join(opts.build, "make-phantom"), volume, "--size", "256", "256", "240"], check=True,
               stdout=subprocess.DEVNULL)

IMAGE_W, IMAGE_H = 512, 409
# Places in the panel (moved to 600, 0; its layout is fixed): the 3D tab on the left, and on
# its First Hit page the interpolation radios, the isovalue radio and the isovalue slider,
# whose knob stands at 2048 of 1..4095 and whose trough runs from x 268 to 467.
TAB_3D = (35, 123)
BILINEAR = (78, 115)
ISOVALUE_RADIO = (78, 274)
SLIDER_Y = 274
KNOB_2048 = 368
KNOB_SKIN = 314  # about 1000: the skin
# On the Light & Shadow tab: the shadow step slider, soft shadows, "Precalculate Occlusions"
# with its bar, and "Use Occlusion Data for Rendering".
TAB_LIGHT = (35, 167)
STEPSIZE = (340, 380)
SOFT = (80, 407)
PRECALC = (156, 453)
SHADOW_BAR = (247, 441, 224, 24)  # x, y, width, height inside the bar
USE_OCCLUSION = (76, 505)


def settled(t, previous=None):
    return t.settled_screenshot(previous, crop=(0, 0, IMAGE_W, IMAGE_H))


def surface(shot):
    """The pixels that are not background, and their grey levels (the passes draw greys here:
    the grey tables of a fresh load, lit toward a white light)."""
    greys = [p & 255 for p in shot.pixels if p != 0]
    return len(greys), (min(greys) if greys else 0), (max(greys) if greys else 0)


def click(t, panel, place):
    px, py, _, _ = t.geometry(panel)
    xdotool("mousemove", "--sync", px + place[0], py + place[1])
    xdotool("click", "1")


def bar_row(t, panel):
    """The top row of the shadow bar, as it is now."""
    x, y, w, _ = SHADOW_BAR
    return t.grab((panel, x, y + 3, w, 1))[0].pixels


with Tavok(opts, [volume]) as t:
    check(t.wait_out(r"^Orlen-data") is not None, "the phantom loads")
    panel = t.panel_aside()
    slices = settled(t)

    # The 3D tab: cuberille.
    click(t, panel, TAB_3D)
    cuberille = settled(t, slices)
    check(cuberille.differs(slices), "the 3D tab shows the cuberille view")

    # "Isovalue (Density)": interpolated first hit, without interpolation to begin with: each
    # voxel at or above 2048 in the colour of its density.
    click(t, panel, ISOVALUE_RADIO)
    voxels = settled(t, cuberille)
    check(voxels.differs(cuberille), "the isovalue radio switches to the first hit")
    covered_voxels, _, _ = surface(voxels)
    check(covered_voxels > IMAGE_W * IMAGE_H // 20, "the skull fills part of the image (%d pixels)" % covered_voxels)

    # Bilinear interpolation: the surface is lit.
    click(t, panel, BILINEAR)
    bone = settled(t, voxels)
    check(bone.differs(voxels), "bilinear interpolation changes the picture")
    covered_bone, darkest, brightest = surface(bone)
    check(brightest - darkest > 60, "the lit skull runs from dark to bright (%d to %d)" % (darkest, brightest))
    t.settle(0.5)
    check(render_time_ink(t, panel) > 10, "the final pass put its render time into GUIrendertime")

    # The isovalue slider down to the skin: a larger surface around the skull.
    px, py, _, _ = t.geometry(panel)
    t.drag(px + KNOB_2048, py + SLIDER_Y, px + KNOB_SKIN, py + SLIDER_Y)
    skin = settled(t, bone)
    covered_skin, darkest, brightest = surface(skin)
    check(skin.differs(bone), "moving the isovalue slider changes the surface")
    check(covered_skin > covered_bone, "the skin covers more than the skull (%d > %d pixels)"
          % (covered_skin, covered_bone))
    check(brightest - darkest > 60, "the skin is lit as well (%d to %d)" % (darkest, brightest))

    # And back up toward the skull.
    t.drag(px + KNOB_SKIN, py + SLIDER_Y, px + KNOB_2048, py + SLIDER_Y)
    again = settled(t, skin)
    check(again.differs(skin), "moving the slider back changes the picture again")

    # Occlusion in the light: with the load's field (0x80 everywhere) the diffuse and specular
    # light are halved.
    click(t, panel, TAB_LIGHT)
    t.settle(0.3)
    click(t, panel, USE_OCCLUSION)
    half_lit = settled(t, again)
    check(half_lit.differs(again), "Use Occlusion Data for Rendering dims the lit skull")

    # Soft shadows at the smallest step (the slider takes the keyboard, which follows the
    # pointer here, and Home puts it at its lowest), so that the calculation lasts a while:
    # several seconds on any machine (a soft ray runs on through translucent tissue, where a
    # hard one stops at the first density at the isovalue).
    click(t, panel, SOFT)
    click(t, panel, STEPSIZE)
    xdotool("key", "Home")
    t.settle(0.3)
    empty = bar_row(t, panel)
    lines = t.out_count()
    click(t, panel, PRECALC)
    check(t.wait_out(r"^calculating occlusion$", start=lines, timeout=5) is not None, "the calculation starts")
    finished = lambda: t.wait_out(r"^finished shadow-calc thread", start=lines, timeout=0.01)

    # w while the worker runs: the camera moves forward at once and the skull grows; and the
    # bar fills. One dump of the screen at a time shows both.
    sdl = t.sdl_window()
    t.move(IMAGE_W // 2, IMAGE_H // 2)
    before_key = t.grab((sdl, 0, 0, IMAGE_W, IMAGE_H))[0]
    t.key("w")
    fills, moved, moved_during, done = [], None, False, None
    bx, by, bw, _ = SHADOW_BAR
    deadline = time.time() + 180
    while done is None and time.time() < deadline:
        image, bar = t.grab((sdl, 0, 0, IMAGE_W, IMAGE_H), (panel, bx, by + 3, bw, 1))
        # How many columns from the left differ from the empty bar's.
        filled = 0
        while filled < bw and bar.pixels[filled] != empty[filled]:
            filled += 1
        fills.append(filled)
        if moved is None and image.differs(before_key):
            moved, moved_during = image, finished() is None
            # s brings the camera back, for the comparison below.
            t.key("s")
        done = finished()
    check(moved is not None and moved_during,
          "a key pressed during the calculation moves the camera before it ends (%s)"
          % ("no change" if moved is None else "changed during it" if moved_during else "changed after it"))
    check(done is not None, "the calculation finishes")
    # Screenshots are slow beside the worker: the bar may be caught only once or twice on its
    # way, part-filled, and never going back.
    seen = [f for f in fills if f > 0]
    check(any(0 < f < bw - 4 for f in seen) and seen == sorted(seen),
          "the shadow bar moves forward while the worker runs (%r)" % seen[:20])
    shadowed = settled(t, half_lit)
    darker = brighter = 0
    for before, after in zip(half_lit.pixels, shadowed.pixels):
        if before and after:
            darker += (after & 255) + 16 < (before & 255)
            brighter += (after & 255) > (before & 255) + 16
    check(darker > 200, "the skull is darker where the shadows fall (%d pixels)" % darker)
    check(brighter > 200, "and lighter where the light reaches it (%d pixels)" % brighter)

    t.key("q")
    check(t.wait_exit() == 0, "q ends the program")

finish()
