#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building and testing need and that are missing.
# apt-get update runs only when something must be installed.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build ccache pkg-config
  qt6-base-dev qt6-base-dev-tools libqt6opengl6-dev libgl-dev
  qtkeychain-qt6-dev libgcrypt20-dev libplist-dev
  libxcb1-dev libxcb-xtest0-dev libxcb-xkb-dev libxkbcommon-dev libxkbcommon-x11-dev libglib2.0-dev
  libbenchmark-dev clang libclang-rt-14-dev
  gobjc libgnustep-base-dev
  xvfb xauth openbox x11-xkb-utils x11-utils xdotool xterm xclip
  dbus dbus-x11 gnome-keyring libsecret-tools
  desktop-file-utils fonts-dejavu-core poppler-utils
  chromium python3
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
