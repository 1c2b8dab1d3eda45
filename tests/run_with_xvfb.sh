#!/usr/bin/env bash
# run_with_xvfb.sh COMMAND... — runs COMMAND with its own X server. Xvfb picks a free display
# itself (-displayfd), so tests started side by side never race for one. -noreset keeps it
# from restarting when its last client leaves, which would refuse the next program for a while.
set -u
fifo=$(mktemp -u)
mkfifo "$fifo"
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset 3>"$fifo" 2>/dev/null &
xvfb_pid=$!
read -r -t 20 display <"$fifo" || { echo "run_with_xvfb: Xvfb did not start" >&2; kill $xvfb_pid 2>/dev/null; rm -f "$fifo"; exit 1; }
rm -f "$fifo"
export DISPLAY=":$display"
"$@"
status=$?
kill $xvfb_pid 2>/dev/null
wait $xvfb_pid 2>/dev/null
exit $status
