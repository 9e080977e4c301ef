#!/usr/bin/env bash
# Installs every Debian package that building, testing, benchmarking and running the viewer need.
# Quiet and quick when everything is already present; safe to run any number of times.
set -euo pipefail

packages=(
  # build
  cmake ninja-build pkg-config g++ clang-format
  # Qt 6 with OpenGL widgets
  qt6-base-dev qt6-base-dev-tools libqt6opengl6-dev libgl-dev
  # Aravis (its pkg-config file needs libusb) and its tools, used as a second peer in the tests
  libaravis-dev aravis-tools libusb-1.0-0-dev
  # zipped and plain GenICam descriptions read by the SDK
  zlib1g-dev libxml2-dev
  # FFmpeg libraries for AVI files, and the ffmpeg/ffprobe tools that check them
  libavformat-dev libavcodec-dev libavutil-dev ffmpeg
  # TIFF frame files
  libtiff-dev
  # OpenCV, the yardstick of the conversion benchmark (bench/convert) and nothing else
  libopencv-dev
  # headless GUI tests: X server and Mesa's software OpenGL
  xvfb xauth libgl1-mesa-dri
  # test helpers: network namespaces and addresses, zipped GenICam descriptions
  iproute2 util-linux zip unzip
  # install and package: man pages from each program's --help, the Debian package's library
  # dependencies (dpkg-shlibdeps, file), and the package test's checks of the desktop entry and
  # the man pages
  help2man dpkg-dev file desktop-file-utils man-db
  # the firewall rules that viewlane-cli doctor reads, set up by its test in its own namespace
  nftables
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
