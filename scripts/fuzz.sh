#!/bin/sh
# Builds the libFuzzer target with clang and runs it for $1 seconds (default 60).
set -eu
cd "$(dirname "$0")/.."
cmake --preset fuzz
cmake --build --preset fuzz
mkdir -p build/fuzz/corpus
# The companion library is a shared object: the sanitizer runtime is shared too.
LD_PRELOAD="$(clang -print-file-name=libclang_rt.asan-x86_64.so)" \
    build/fuzz/fuzz_render -max_total_time="${1:-60}" build/fuzz/corpus
