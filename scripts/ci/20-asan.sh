#!/bin/sh
# The whole suite again under AddressSanitizer, UndefinedBehaviorSanitizer and
# LeakSanitizer (preset asan, tools and frei0r plug-ins included): every test
# program, among them the allocation-failure run (every allocation of an
# instance's life failed in turn) and the soak (many instances over thousands
# of calls), must end without a report; a leak fails the program at exit.
#
# Frei0r.RunsInsideFfmpeg is left to the native build: there an uninstrumented
# ffmpeg loads a plug-in, which an instrumented plug-in cannot do without the
# sanitizer runtime loaded first (the asan test preset excludes it).
set -eu
cd "$(dirname "$0")/../.."
jobs=$(nproc 2>/dev/null || echo 2)
export ASAN_OPTIONS="detect_leaks=1:detect_stack_use_after_return=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ctest --preset asan -j "$jobs"
