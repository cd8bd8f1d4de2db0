#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, and only those that are
# missing, so that a second run costs nothing.
set -euo pipefail
packages=(
  cmake make g++ pkg-config googletest libgtest-dev libbenchmark-dev
  emscripten nodejs
  libpng-dev libjpeg62-turbo-dev libexif-dev libpixman-1-dev
  libplist-utils
  clang libclang-rt-14-dev libturbojpeg0-dev
  chromium
  libavformat-dev libavcodec-dev libswscale-dev libswresample-dev libavutil-dev libgif-dev ffmpeg
  groff-base
  exiv2 libimage-exiftool-perl
)
# npm comes with some builds of nodejs and is a package of its own with Debian's.
command -v npm >/dev/null || packages+=(npm)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing missing packages: ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null; then SUDO=sudo; else
    echo "error: these packages are missing and this is not root: ${missing[*]}" >&2; exit 1; fi
else SUDO=; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
