#!/usr/bin/env bash
# Installs what building and testing needs, from Debian's packages. Does
# nothing when everything is there already.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  binutils libxml2-utils
  libjpeg62-turbo-dev libpng-dev
  libjpeg-turbo-progs  # djpeg: recorded files are checked with a standard decoder
  ffmpeg  # the video tests check AVI files with ffprobe and read files of ffmpeg
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
