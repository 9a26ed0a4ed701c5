#!/bin/sh
# The benchmarks once, briefly, as a smoke test: every effect in both formats
# at 720x576 with the memcpy beside it, and the module against the -O1
# transcriptions of the effects' formulas on a small frame in both builds
# (which fails when a transcription and the module draw different pixels).
# Nothing here asserts a time.
set -eu
cd "$(dirname "$0")/../.."
build/native/bench_effects --benchmark_filter='/576$' --benchmark_min_time=0.001
for build in build/native build/i386; do
    echo "-- $build/bench_models"
    "$build/bench_models" --size 160x90 --rounds 1
done
