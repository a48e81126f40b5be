#!/usr/bin/env bash
# Installs what building and testing needs, from Debian's packages, and
# any further packages named on the command line. Does nothing when
# everything is there already.
#
#   bash scripts/install-deps.sh [PACKAGE...]
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  binutils libxml2-utils
  libjpeg62-turbo-dev libpng-dev
  libjpeg-turbo-progs  # djpeg: recorded files are checked with a standard decoder
  ffmpeg  # the video tests check AVI files with ffprobe and read files of ffmpeg
  libsdl2-dev  # lumhost view: the live window
  xvfb x11-apps  # the view's tests run it on an X server of their own; xwd dumps the screen
  libaravis-dev  # "LUMAravis.so": GigE Vision / USB3 Vision cameras through Aravis 0.8
  libusb-1.0-0-dev  # named by aravis-0.8.pc (Requires.private) but not pulled in by libaravis-dev
  aravis-tools-cli  # arv-tool-0.8: looking at a real camera's features from the shell
  "$@"
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
