#!/bin/sh
# Installs the Debian 12 packages reelfx needs, skipping what is already there.
set -eu
packages="cmake ninja-build g++ g++-multilib pkg-config binutils make
  googletest libgtest-dev libbenchmark-dev
  libavformat-dev libavcodec-dev libswscale-dev libavutil-dev libswresample-dev
  libpng-dev libcairo2-dev fonts-dejavu-core libcli11-dev nlohmann-json3-dev
  frei0r-plugins-dev ffmpeg
  melt gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-bad
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev qtdeclarative5-dev-tools lintian file dpkg-dev libxml2-dev libxml2-utils
  clang libclang-rt-14-dev clang-format-14 clang-tidy-14 slurm-wlm parallel"
missing=""
for p in $packages; do
    dpkg -s "$p" >/dev/null 2>&1 || missing="$missing $p"
done
if [ -n "$missing" ]; then
    echo "installing:$missing"
    if [ "$(id -u)" -eq 0 ]; then sudo=""; else sudo="sudo"; fi
    $sudo apt-get update
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends $missing
fi
