#!/usr/bin/env python3
"""tavok without a display: one line that says a display is needed and that tavok-render works
without one, status 1, and the terminal left alone (no escape codes, which a text-mode video
driver would send). tavok --help prints its usage and opens no window, display or not. A video
driver the user names in SDL_VIDEODRIVER is taken as given."""
import os
import subprocess

from guitest import check, finish, options, phantom

opts = options()
volume = phantom(opts)


def run(args, env):
    p = subprocess.run([opts.tavok] + args, capture_output=True, env=env, timeout=60)
    return p.returncode, p.stdout.decode(errors="replace"), p.stderr.decode(errors="replace")


no_display = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "SDL_VIDEODRIVER")}
status, out, err = run([volume], no_display)
check(status == 1, "no display: status 1 (got %r)" % status)
lines = [l for l in err.split("\n") if l.strip()]
check(len(lines) == 1, "no display: one line on standard error (got %r)" % lines)
check("X display" in err and "tavok-render" in err, "no display: it names the display and tavok-render: %r" % err)
check("\x1b" not in out and "\x1b" not in err, "no display: no escape codes on the terminal")
check("Set 512x512x32 video mode" not in out, "no display: no window was opened")

# --help: usage on standard output, status 0, no window, with or without a display.
for env, what in ((no_display, "without a display"), (dict(os.environ), "with a display")):
    status, out, err = run(["--help"], env)
    check(status == 0, "--help %s: status 0 (got %r)" % (what, status))
    check(out.startswith("usage: ") and "tavok-render" in out, "--help %s: the usage: %r" % (what, out[:200]))
    check("video mode" not in out and "tavok by" not in out, "--help %s: no window, no banner" % what)
    check(err == "", "--help %s: nothing on standard error: %r" % (what, err[:200]))

# A driver named by the user is used: SDL's dummy driver opens without X, then the panel,
# which needs X, gives up.
status, out, err = run([volume], dict(no_display, SDL_VIDEODRIVER="dummy"))
check("Set 512x512x32 video mode" in out, "SDL_VIDEODRIVER=dummy: the dummy window opened")
check(status != 0, "SDL_VIDEODRIVER=dummy: the panel can't open without X (status %r)" % status)

finish()
