"""guitest.py — harness for tests of the real tavok windows.

A test script starts tavok under its own X server, reads its standard output and error as
they come, finds the SDL window and the control panel, drives them with xdotool (XTEST, as a
user's keyboard and mouse would), and takes screenshots with xwd. Standard library only.

    from guitest import Tavok, options, check
    opts = options()
    with Tavok(opts, ["volume.dat"]) as t:
        t.wait_out("Orlen-data")
        t.key("q")
        check(t.wait_exit() == 0, "exit status 0")

Run a script directly under an X server, or without one: options() then runs it again under
tests/run_with_xvfb.sh, as CTest does.
"""
import argparse
import ctypes
import os
import re
import struct
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from testlib import (Image, check, failures, finish, phantom, read_png, shared_data, skip,  # noqa: E402,F401
                     start_grey, write_dat)

SDL_CLASS = "tavok"    # WM_CLASS class of the SDL window
PANEL_CLASS = "Tavok"  # WM_CLASS class of the GTK panel
SWITCH_3D = (140, 220)  # "3D View / Slice View" in the panel, at its place in the layout


def options(extra=None):
    """Command line of a GUI test: --tavok BINARY --build DIR --source DIR [extra].
    Without a display the script runs itself again under an X server of its own."""
    if not os.environ.get("DISPLAY"):
        wrapper = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "run_with_xvfb.sh")
        os.execv(wrapper, [wrapper, sys.executable, os.path.abspath(sys.argv[0])] + sys.argv[1:])
    parser = argparse.ArgumentParser()
    parser.add_argument("--tavok", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--source", required=True)
    if extra:
        extra(parser)
    return parser.parse_args()


def xdotool(*args):
    out = subprocess.run(["xdotool"] + [str(a) for a in args], capture_output=True, text=True)
    return out.stdout.strip()


def read_xwd(data, region=None):
    """Decodes the depth-24 ZPixmap dumps (24 or 32 bits a pixel) that xwd writes of a true-colour
    screen; with region = (x, y, w, h), only that part of it (decoding the whole screen is the
    slow part of a screenshot)."""
    fields = struct.unpack(">25I", data[:100])
    header_size, _, pixmap_format, depth, width, height = fields[:6]
    byte_order, bits_per_pixel, bytes_per_line = fields[7], fields[11], fields[12]
    red_mask, green_mask, blue_mask = fields[14], fields[15], fields[16]
    ncolors = fields[19]
    if pixmap_format != 2 or bits_per_pixel not in (24, 32):
        raise RuntimeError("unexpected xwd format %d/%d" % (pixmap_format, bits_per_pixel))
    if (red_mask, green_mask, blue_mask) != (0xff0000, 0xff00, 0xff):
        raise RuntimeError("unexpected colour masks")
    x0, y0, w, h = region or (0, 0, width, height)
    w, h = max(0, min(w, width - x0)), max(0, min(h, height - y0))  # what lies on the screen
    offset = header_size + ncolors * 12
    order = "<" if byte_order == 0 else ">"
    pixels = []
    for y in range(y0, y0 + h):
        if bits_per_pixel == 32:
            start = offset + y * bytes_per_line + x0 * 4
            words = struct.unpack(order + "%dI" % w, data[start:start + w * 4])
            pixels.extend(v & 0xffffff for v in words)
        else:
            # Some Xvfb builds pack depth 24 into three bytes a pixel.
            start = offset + y * bytes_per_line + x0 * 3
            row = data[start:start + w * 3]
            if byte_order == 0:
                pixels.extend(row[i + 2] << 16 | row[i + 1] << 8 | row[i] for i in range(0, w * 3, 3))
            else:
                pixels.extend(row[i] << 16 | row[i + 1] << 8 | row[i + 2] for i in range(0, w * 3, 3))
    return Image(w, h, pixels)


def cpu_seconds(pid):
    """User and system CPU time of a process so far, in seconds (from /proc)."""
    fields = open("/proc/%d/stat" % pid).read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def context_switches(pid):
    """How often the process's threads have given up or lost the processor so far: a count
    that a sleeping program keeps low, whatever else the machine is doing."""
    total = 0
    for tid in os.listdir("/proc/%d/task" % pid):
        for line in open("/proc/%d/task/%s/status" % (pid, tid)):
            if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                total += int(line.split()[1])
    return total


def idle_figures(pid, seconds):
    """(CPU in % of one core, context switches a second) of a process over seconds."""
    cpu, switches, start = cpu_seconds(pid), context_switches(pid), time.time()
    time.sleep(seconds)
    span = time.time() - start
    return 100.0 * (cpu_seconds(pid) - cpu) / span, (context_switches(pid) - switches) / span


class XProbe:
    """Fast access to the X server for timing: keys sent through XTEST and a region of the
    screen read with XGetImage, both through ctypes on the display of DISPLAY. xdotool and xwd
    start a process for each call, far too slow to time a frame."""

    class _XImage(ctypes.Structure):
        _fields_ = [("width", ctypes.c_int), ("height", ctypes.c_int), ("xoffset", ctypes.c_int),
                    ("format", ctypes.c_int), ("data", ctypes.c_void_p), ("byte_order", ctypes.c_int),
                    ("bitmap_unit", ctypes.c_int), ("bitmap_bit_order", ctypes.c_int),
                    ("bitmap_pad", ctypes.c_int), ("depth", ctypes.c_int),
                    ("bytes_per_line", ctypes.c_int), ("bits_per_pixel", ctypes.c_int)]

    def __init__(self):
        self.x11 = ctypes.CDLL("libX11.so.6")
        self.xtst = ctypes.CDLL("libXtst.so.6")
        self.x11.XOpenDisplay.restype = ctypes.c_void_p
        self.x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
        self.x11.XDefaultRootWindow.restype = ctypes.c_ulong
        self.x11.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
        self.x11.XStringToKeysym.restype = ctypes.c_ulong
        self.x11.XStringToKeysym.argtypes = [ctypes.c_char_p]
        self.x11.XKeysymToKeycode.restype = ctypes.c_ubyte
        self.x11.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
        self.x11.XGetImage.restype = ctypes.POINTER(XProbe._XImage)
        self.x11.XGetImage.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_int,
                                       ctypes.c_uint, ctypes.c_uint, ctypes.c_ulong, ctypes.c_int]
        self.x11.XDestroyImage.argtypes = [ctypes.c_void_p]
        self.x11.XFlush.argtypes = [ctypes.c_void_p]
        self.x11.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
        self.xtst.XTestFakeKeyEvent.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_int, ctypes.c_ulong]
        self.dpy = self.x11.XOpenDisplay(None)
        if not self.dpy:
            raise RuntimeError("can't open the display")
        self.root = self.x11.XDefaultRootWindow(self.dpy)

    def key(self, name, down):
        code = self.x11.XKeysymToKeycode(self.dpy, self.x11.XStringToKeysym(name.encode()))
        self.xtst.XTestFakeKeyEvent(self.dpy, code, 1 if down else 0, 0)
        self.x11.XSync(self.dpy, 0)

    def region(self, x, y, w, h):
        """The pixels of a screen region as bytes (the server's own format)."""
        image = self.x11.XGetImage(self.dpy, self.root, x, y, w, h, 0xffffffff, 2)  # ZPixmap
        data = ctypes.string_at(image.contents.data, image.contents.bytes_per_line * h)
        self.x11.XDestroyImage(image)
        return data


class Tavok:
    """A running tavok program with its output captured line by line."""

    def __init__(self, opts, args=(), env=None):
        self.opts = opts
        self.args = list(args)
        self.env = dict(os.environ, **(env or {}))
        self.out_lines, self.err_lines = [], []
        self.lock = threading.Lock()

    def __enter__(self):
        self.proc = subprocess.Popen([self.opts.tavok] + self.args, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, env=self.env)
        self.readers = []
        for stream, lines in ((self.proc.stdout, self.out_lines), (self.proc.stderr, self.err_lines)):
            reader = threading.Thread(target=self._reader, args=(stream, lines), daemon=True)
            reader.start()
            self.readers.append(reader)
        return self

    def __exit__(self, *exc):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()

    def _reader(self, stream, lines):
        for raw in iter(stream.readline, b""):
            with self.lock:
                lines.append(raw.decode(errors="replace").rstrip("\n"))

    def stdout(self):
        with self.lock:
            return "\n".join(self.out_lines)

    def stderr(self):
        with self.lock:
            return "\n".join(self.err_lines)

    def _wait(self, lines, pattern, timeout, start):
        deadline = time.time() + timeout
        regex = re.compile(pattern)
        index = start
        while time.time() < deadline:
            with self.lock:
                while index < len(lines):
                    if regex.search(lines[index]):
                        return lines[index]
                    index += 1
            if self.proc.poll() is not None:
                time.sleep(0.2)
                with self.lock:
                    if not any(regex.search(l) for l in lines[start:]):
                        return None
            time.sleep(0.05)
        return None

    def wait_out(self, pattern, timeout=20, start=0):
        """The first line of standard output from index start on matching the regex, or None."""
        return self._wait(self.out_lines, pattern, timeout, start)

    def wait_err(self, pattern, timeout=20, start=0):
        return self._wait(self.err_lines, pattern, timeout, start)

    def out_count(self):
        with self.lock:
            return len(self.out_lines)

    def wait_exit(self, timeout=20):
        """The exit status, once the program has ended and all it wrote has been read."""
        try:
            status = self.proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            return None
        for reader in self.readers:
            reader.join(timeout=5)
        return status

    def _windows(self, wm_class):
        deadline = time.time() + 20
        while time.time() < deadline:
            for w in xdotool("search", "--name", "tavok").split():
                prop = subprocess.run(["xprop", "-id", w, "WM_CLASS"], capture_output=True, text=True).stdout
                if '"%s"' % wm_class in prop.split("=")[-1].split(",")[-1]:
                    geometry = xdotool("getwindowgeometry", w)
                    if "Geometry: 1x1" not in geometry and "10x10" not in geometry:
                        return w
            if self.proc.poll() is not None:
                break
            time.sleep(0.1)
        raise RuntimeError("window of class %s not found (tavok %s)\n--- stdout:\n%s\n--- stderr:\n%s\n--- windows: %s"
                           % (wm_class, "running" if self.proc.poll() is None else "exited %r" % self.proc.poll(),
                              self.stdout(), self.stderr(), xdotool("search", "--name", "tavok")))

    def sdl_window(self):
        return self._windows(SDL_CLASS)

    def panel_window(self):
        return self._windows(PANEL_CLASS)

    def geometry(self, window):
        text = xdotool("getwindowgeometry", window)
        x, y = map(int, re.search(r"Position: (\d+),(\d+)", text).groups())
        w, h = map(int, re.search(r"Geometry: (\d+)x(\d+)", text).groups())
        return x, y, w, h

    def panel_aside(self, x=600, y=0):
        """Moves the panel beside the image window (without a window manager both open at the
        top left, the panel on top) and returns it."""
        panel = self.panel_window()
        xdotool("windowmove", "--sync", panel, x, y)
        self.settle(0.8)
        return panel

    def switch_to_3d(self):
        """Moves the panel aside and presses "3D View / Slice View" (a fixed place in its
        layout): the cuberille view from the slice plane's camera. Returns the panel."""
        panel = self.panel_aside()
        px, py, _, _ = self.geometry(panel)
        xdotool("mousemove", "--sync", px + SWITCH_3D[0], py + SWITCH_3D[1])
        xdotool("click", 1)
        return panel

    def focus_sdl(self):
        w = self.sdl_window()
        xdotool("windowfocus", "--sync", w)
        return w

    def key(self, *keys, hold_ms=120):
        """Presses keys in the SDL window, one after the other. Each stays down for hold_ms:
        tavok reads the key state once a frame, and a press and release that fall between
        two frames would never be seen."""
        self.focus_sdl()
        for k in keys:
            xdotool("keydown", k)
            time.sleep(hold_ms / 1000.0)
            xdotool("keyup", k)
            time.sleep(0.05)

    def move(self, x, y):
        """Moves the pointer to (x, y) of the SDL window."""
        w = self.sdl_window()
        xdotool("mousemove", "--window", w, x, y)

    def click(self, x, y, button=1, repeat=1, delay_ms=80):
        self.move(x, y)
        xdotool("click", "--repeat", repeat, "--delay", delay_ms, button)

    def press_at(self, x, y, button=1):
        """Moves the pointer to (x, y) and presses a button there. tavok reads the pointer's
        motion since its last frame together with the buttons, so a frame must pass between
        getting there and pressing, or the way there would count as part of a drag."""
        self.move(x, y)
        time.sleep(0.25)
        xdotool("mousedown", button)

    def drag(self, x0, y0, x1, y1, button=1, steps=10, step_ms=30):
        """Holds a button at (x0, y0) and moves to (x1, y1) in steps, then releases. For
        presses on the strip, where the pointer stays free."""
        self.press_at(x0, y0, button)
        time.sleep(step_ms / 1000.0)
        for i in range(1, steps + 1):
            self.move(x0 + (x1 - x0) * i // steps, y0 + (y1 - y0) * i // steps)
            time.sleep(step_ms / 1000.0)
        xdotool("mouseup", button)

    def drag_relative(self, x0, y0, dx, dy, button=1, steps=6, step_ms=40):
        """Holds a button at (x0, y0) and moves the pointer by (dx, dy) in steps of relative
        motion, then releases. A press on the image grabs the pointer, and SDL may warp it
        back to the middle of the window; relative steps add up to (dx, dy) all the same."""
        self.press_at(x0, y0, button)
        time.sleep(step_ms / 1000.0)
        for i in range(steps):
            sx = dx * (i + 1) // steps - dx * i // steps
            sy = dy * (i + 1) // steps - dy * i // steps
            xdotool("mousemove_relative", "--", sx, sy)
            time.sleep(step_ms / 1000.0)
        xdotool("mouseup", button)

    def hold(self, button, hold_ms):
        """One press held across a few frames: tavok reads the button state once a frame."""
        xdotool("mousedown", button)
        time.sleep(hold_ms / 1000.0)
        xdotool("mouseup", button)

    def tap_at(self, x, y, button=1, hold_ms=40):
        """Moves the pointer to (x, y) and presses a button there for hold_ms."""
        self.move(x, y)
        time.sleep(0.1)
        self.hold(button, hold_ms)

    def double_click(self, x, y, expect, start):
        """Two presses less than 150 ms apart, the second held until the strip has acted. The
        pointer is placed first, so nothing slow comes between the two. On a busy machine the
        pair may come too slowly to count: a missed double click does nothing (the single
        presses find no node to pick up there), so it is tried again, up to three times, until
        a line of standard output from index start on matches expect."""
        for attempt in range(3):
            self.move(x, y)
            time.sleep(0.2)
            self.hold(1, 40)
            time.sleep(0.04)
            self.hold(1, 150)
            if self.wait_out(expect, timeout=2, start=start) is not None:
                return True
            time.sleep(0.5)
        return False

    def dialog_window(self, title="^Select A Color$", timeout=10):
        """The first window whose name matches title, or None after timeout seconds."""
        deadline = time.time() + timeout
        while True:
            found = xdotool("search", "--onlyvisible", "--name", title).split()
            if found:
                return found[0]
            if time.time() >= deadline:
                return None
            time.sleep(0.1)

    def screenshot(self, window=None):
        """The SDL window's pixels (or another window's) as an Image."""
        w = window or self.sdl_window()
        x, y, width, height = self.geometry(w)
        return read_xwd(self._dump(), (x, y, width, height))

    def grab(self, *regions):
        """Parts of windows at one instant, from one dump of the screen: for each region
        (window, x, y, w, h), with x, y inside the window, an Image."""
        origins = [self.geometry(r[0])[:2] for r in regions]
        dump = self._dump()
        return [read_xwd(dump, (ox + x, oy + y, w, h)) for (ox, oy), (_, x, y, w, h) in zip(origins, regions)]

    def _dump(self):
        """An xwd dump of the whole screen. xwd now and then gives nothing while a window is
        mapped or resized under it; a few tries get a whole dump, and the last error is shown
        if none does."""
        for attempt in range(5):
            run = subprocess.run(["xwd", "-root", "-silent"], capture_output=True)
            if len(run.stdout) >= 100:
                return run.stdout
            time.sleep(0.2)
        raise RuntimeError("xwd gave no dump: " + run.stderr.decode(errors="replace").strip())

    def settle(self, seconds=0.5):
        time.sleep(seconds)

    def settled_screenshot(self, previous=None, crop=None, tries=60, pause=0.15):
        """A screenshot of the SDL window (cropped to crop = (x, y, w, h)) once two in a row
        agree and, with previous, differ from it: the picture after the final pass."""
        def take():
            shot = self.screenshot()
            return shot.crop(*crop) if crop else shot
        shot = take()
        for _ in range(tries):
            self.settle(pause)
            again = take()
            if not again.differs(shot) and (previous is None or again.differs(previous)):
                return again
            shot = again
        return shot


# The render time entry GUIrendertime at the bottom right of the panel, when the panel stands
# at 600, 0 (its layout is fixed): x, y, width, height inside the entry.
RENDER_TIME = (240, 574, 225, 18)


def render_time_ink(t, panel):
    """Dark pixels inside the render time entry: the digits of a render time, 0 when empty."""
    x, y, w, h = RENDER_TIME
    entry = t.screenshot(panel).crop(x, y, w, h)
    return entry.count(lambda p: (p >> 16) < 0x60 and ((p >> 8) & 255) < 0x60 and (p & 255) < 0x60)
