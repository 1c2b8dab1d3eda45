#!/usr/bin/env python3
"""bench_projections.py — the maximum intensity and average projections on the CT head, with
the cuberille final of the same run beside them, at the two cameras of the speed goals: the
camera after loading and the head seen from the front.

    bench/bench_projections.py [--render build/tavok-render] [--volume CT.dat] [--runs 15]
                               [--rounds 3] [--modes mip,avg] [--interps none,bilinear,trilinear]

Each round runs tavok-render --bench RUNS once per pass (cuberille first, then every mode in
every interpolation) at 512 x 409 with a transfer function that shows skin (densities 900 to
1200, opacity 0.3) and bone (1400 and up, opacity 0.8). It prints the median of the rounds'
medians, in milliseconds, for the preview and the final, and the final's ratio to the
cuberille final of the same camera. tavok-render is single-threaded: one core. The machine is
shared and noisy: read the medians, and run it more than once.
"""
import argparse
import os
import re
import statistics
import subprocess
import sys

here = os.path.dirname(os.path.abspath(__file__))
CT = os.path.join(here, "..", "..", "shared", "data", "ct-head-256x256x108.dat")
SKIN_AND_BONE = ["--opacity", "899=0", "--opacity", "900=0.3", "--opacity", "1200=0.3",
                 "--opacity", "1201=0", "--opacity", "1399=0", "--opacity", "1400=0.8",
                 "--color", "899=d08060", "--color", "1400=f0e8d8"]
CAMERAS = [("after loading", []),
           ("front", ["--eye", "128,-250,54", "--forward", "0,1,0", "--up", "0,0,-1"])]


def bench(render, volume, runs, args):
    out = subprocess.run([render, volume, "--size", "512x409", "--bench", str(runs)] + SKIN_AND_BONE + args,
                         capture_output=True, text=True, check=True).stdout
    found = dict(re.findall(r"^(preview|final): median ([0-9.]+) ms", out, re.M))
    return float(found["preview"]), float(found.get("final", "nan"))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--render", default=os.path.join(here, "..", "build", "tavok-render"))
    parser.add_argument("--volume", default=CT)
    parser.add_argument("--runs", type=int, default=15)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--modes", default="mip,avg")
    parser.add_argument("--interps", default="none,bilinear,trilinear")
    opts = parser.parse_args()
    if not os.path.exists(opts.volume):
        print("skipped: no CT head at %s" % opts.volume)
        return 0
    passes = [("cuberille", [])] + [("%s %s" % (m, i), ["--mode", m, "--interp", i])
                                    for m in opts.modes.split(",") for i in opts.interps.split(",")]
    for camera, camera_args in CAMERAS:
        times = {name: ([], []) for name, _ in passes}
        for _ in range(opts.rounds):
            for name, args in passes:
                preview, final = bench(opts.render, opts.volume, opts.runs, camera_args + args)
                times[name][0].append(preview)
                times[name][1].append(final)
        print("camera %s (512 x 409, medians of %d rounds of --bench %d):" % (camera, opts.rounds, opts.runs))
        base = statistics.median(times["cuberille"][1])
        for name, _ in passes:
            preview, final = statistics.median(times[name][0]), statistics.median(times[name][1])
            print("  %-20s preview %8.2f ms   final %8.2f ms   final / cuberille final %5.2f"
                  % (name, preview, final, final / base))
    return 0


if __name__ == "__main__":
    sys.exit(main())
