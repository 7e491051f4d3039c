#!/usr/bin/env bash
# Runs a command inside a private desktop session for the tests: a fresh HOME and XDG
# directories, Xvfb on a free display with Openbox, a private D-Bus session bus, and
# gnome-keyring's Secret Service unlocked with a throw-away password.
set -euo pipefail

work=$(mktemp -d /tmp/tessaline-session.XXXXXX)
export HOME="$work/home"
export XDG_RUNTIME_DIR="$work/run"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME"
chmod 700 "$XDG_RUNTIME_DIR"
unset SSH_AUTH_SOCK GNOME_KEYRING_CONTROL DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY

pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# Xvfb picks a free display itself (-displayfd) and says which: two sessions that start at once
# must not both take the first display that looks free, where the second would run its tests
# on the first one's server and lose it when that session ends.
: >"$work/display"
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
pids+=($!)
for _ in $(seq 1 100); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { echo "test-env: Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$work/display")"
for _ in $(seq 1 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
xdpyinfo >/dev/null 2>&1 || { echo "test-env: Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
setxkbmap us || true

openbox >"$work/openbox.log" 2>&1 &
pids+=($!)
# The first window test fails if the window manager is not yet managing the screen.
for _ in $(seq 1 100); do xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break; sleep 0.1; done

export TESSALINE_TEST_SESSION=1
dbus-run-session -- bash -c '
  eval "$(printf %s tessaline-test | gnome-keyring-daemon --unlock --components=secrets)"
  export GNOME_KEYRING_CONTROL
  exec "$@"' test-env "$@"
