#!/bin/sh
# The benchmarks once, briefly, as a smoke test: every effect in both formats
# at 720x576 with the memcpy beside it, and the model comparison on a small
# frame. Nothing here asserts a time; a crash or a refused render fails.
set -eu
cd "$(dirname "$0")/../.."
build/native/bench_effects --benchmark_filter='/576$' --benchmark_min_time=0.001
if [ -x build/native/bench_models ]; then
    build/native/bench_models --size 160x90 --rounds 1
fi
