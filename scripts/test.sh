#!/bin/sh
# Builds the 64-bit and 32-bit presets, runs every test of both through CTest,
# then checks that both builds render identical pixels.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
for preset in native i386; do
    cmake --preset "$preset"
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done
scripts/cross-build-check.sh build/native build/i386
