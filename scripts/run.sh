#!/usr/bin/env bash
# Starts Tessaline. Without a display, starts it on a virtual X display instead, saves a
# screenshot of its first window under build/ and says where.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
app="$root/build/tessaline"
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
  exec "$app" "$@"
fi
echo "No X display found: starting Tessaline on a virtual display (Xvfb) instead."
for d in $(seq 91 160); do
  if [ ! -e "/tmp/.X$d-lock" ] && [ ! -e "/tmp/.X11-unix/X$d" ]; then display=":$d"; break; fi
done
Xvfb "$display" -screen 0 1280x1024x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true' EXIT
export DISPLAY="$display"
for _ in $(seq 1 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
shot="$root/build/tessaline-first-window.png"
rm -f "$shot"
dbus-run-session -- "$app" --screenshot "$shot" "$@"
if [ -f "$shot" ]; then
  echo "Screenshot of the first window: $shot"
else
  echo "Tessaline did not produce a screenshot." >&2
  exit 1
fi
