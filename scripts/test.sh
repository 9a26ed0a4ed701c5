#!/bin/sh
# Builds the 64-bit and 32-bit presets, runs every test of both through CTest,
# checks that both builds render identical pixels, then runs the further
# stages in scripts/ci/ (sanitizers, fuzzing, packaging), each a script of its
# own that prints what it checks and fails the run on the first error.
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
for stage in scripts/ci/*.sh; do
    [ -e "$stage" ] || continue
    echo "== $stage"
    start=$(date +%s)
    sh "$stage"
    echo "== $stage done in $(( $(date +%s) - start )) s"
done
