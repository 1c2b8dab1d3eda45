#!/usr/bin/env python3
"""bench_idle.py — what an idle tavok costs and how fast it answers, on the real windows under
an X server of its own (Xvfb, started as the GUI tests do).

    bench/bench_idle.py --tavok build/tavok --build build [--baseline OTHER/tavok]
                        [--seconds 10] [--presses 15]

For each program: the CPU time of the idle window (the phantom in the cuberille view, its
final pass done) over --seconds, once with the control panel focused and once with the image
window focused, as a share of one core; then the time from a key press (XTEST, a sideways
step) to the first changed pixel of the image, over --presses presses: median, minimum and
maximum. With --baseline the same figures for that program come first and the ratios follow.
The machine is shared: run it a few times and read the medians.
"""
import argparse
import os
import statistics
import subprocess
import sys
import time

here = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(here, "..", "tests", "gui"))
sys.path.insert(0, os.path.join(here, "..", "tests"))
if not os.environ.get("DISPLAY"):
    wrapper = os.path.join(here, "..", "tests", "run_with_xvfb.sh")
    os.execv(wrapper, [wrapper, sys.executable, os.path.abspath(sys.argv[0])] + sys.argv[1:])

from guitest import Tavok, XProbe, cpu_seconds, idle_figures, phantom, xdotool  # noqa: E402

IMAGE = (0, 0, 512, 409)


def settle_idle(t, probe, quiet=1.5, limit=60):
    """Waits until the image has not changed for quiet seconds (the final pass is done)."""
    last, since, deadline = probe.region(*IMAGE), time.time(), time.time() + limit
    while time.time() < deadline:
        time.sleep(0.1)
        now = probe.region(*IMAGE)
        if now != last:
            last, since = now, time.time()
        elif time.time() - since >= quiet:
            return True
    return False


def x_server():
    """The pid of the Xvfb that run_with_xvfb.sh started beside this script, or None."""
    out = subprocess.run(["pgrep", "-P", str(os.getppid()), "Xvfb"], capture_output=True, text=True).stdout.split()
    return int(out[0]) if out else None


def idle_cpu(t, seconds):
    """CPU of tavok and of the X server over seconds, in % of one core, and tavok's context
    switches a second (which the machine's load doesn't hide)."""
    server = x_server()
    server_before, start = cpu_seconds(server) if server else 0.0, time.time()
    cpu, switches = idle_figures(t.proc.pid, seconds)
    span = time.time() - start
    return (cpu, 100.0 * (cpu_seconds(server) - server_before) / span if server else float("nan"),
            switches)


def measure(binary, opts):
    class O:
        pass
    o = O()
    o.tavok, o.build, o.source = binary, opts.build, os.path.join(here, "..")
    probe = XProbe()
    with Tavok(o, [phantom(o)]) as t:
        t.wait_out(r"^Orlen-data")
        panel = t.switch_to_3d()
        time.sleep(0.5)
        settle_idle(t, probe)
        xdotool("windowfocus", "--sync", panel)
        time.sleep(1.0)
        focused = idle_cpu(t, opts.seconds)
        window = t.focus_sdl()
        xdotool("mousemove", "--sync", 256, 200)
        time.sleep(1.0)
        unfocused = idle_cpu(t, opts.seconds)

        latencies = []
        for k in range(opts.presses):
            settle_idle(t, probe, quiet=1.0)
            before = probe.region(*IMAGE)
            key = "a" if k % 2 == 0 else "d"
            t0 = time.perf_counter()
            probe.key(key, True)
            while probe.region(*IMAGE) == before and time.perf_counter() - t0 < 5:
                pass
            latencies.append((time.perf_counter() - t0) * 1000.0)
            probe.key(key, False)
        t.key("q")
        t.wait_exit()
    return focused, unfocused, latencies


def report(name, figures):
    focused, unfocused, lat = figures
    print("%s:\n  idle, panel focused: tavok %.2f %%, X server %.2f %% of a core; tavok %.1f "
          "context switches/s\n"
          "  idle, image window focused: tavok %.2f %%, X server %.2f %% of a core; tavok %.1f "
          "context switches/s\n"
          "  key to first preview pixel: median %.1f ms, min %.1f ms, max %.1f ms (%d presses)"
          % (name, focused[0], focused[1], focused[2], unfocused[0], unfocused[1], unfocused[2],
             statistics.median(lat), min(lat), max(lat), len(lat)), flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tavok", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--baseline")
    parser.add_argument("--seconds", type=float, default=10.0)
    parser.add_argument("--presses", type=int, default=15)
    opts = parser.parse_args()
    base = None
    if opts.baseline:
        base = measure(opts.baseline, opts)
        report("baseline " + opts.baseline, base)
    this = measure(opts.tavok, opts)
    report(opts.tavok, this)
    if base:
        print("ratios (this / baseline): tavok's CPU panel focused %.3f, image focused %.3f; "
              "median latency %.2f" % (this[0][0] / max(base[0][0], 1e-9), this[1][0] / max(base[1][0], 1e-9),
                                        statistics.median(this[2]) / statistics.median(base[2])))


if __name__ == "__main__":
    main()
