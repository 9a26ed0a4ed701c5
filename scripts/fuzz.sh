#!/bin/sh
# Builds the libFuzzer targets with the fuzz preset (clang, ASan + UBSan) and
# runs each for SECONDS (default 60):
#   scripts/fuzz.sh [SECONDS] [TARGET...]     targets: render resizer params
# Each target starts from its committed seeds (fuzz/corpus/TARGET) and grows
# its working corpus in build/fuzz/corpus/TARGET, with fuzz/TARGET.dict. The
# reproducers in fuzz/regressions/TARGET are run first. Any finding (crash,
# sanitizer report, failed check, leak, a unit slower than 25 s or above the
# memory limit) stops the run with a non-zero status; the input is left in
# build/fuzz/findings/. FUZZ_JOBS=N runs N processes per target (fork mode).
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -gt 0 ] && shift
targets=${*:-render resizer params}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

# The companion library is a shared object, so the sanitizer runtime is the
# shared one and goes first.
LD_PRELOAD="$(clang -print-file-name=libclang_rt.asan-x86_64.so)"
export LD_PRELOAD
ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:symbolize=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export ASAN_OPTIONS UBSAN_OPTIONS

mkdir -p build/fuzz/findings
for t in $targets; do
    bin=build/fuzz/fuzz_$t
    corpus=build/fuzz/corpus/$t
    mkdir -p "$corpus"
    if [ -d "fuzz/regressions/$t" ] && [ -n "$(ls -A "fuzz/regressions/$t")" ]; then
        echo "== fuzz_$t: regressions"
        "$bin" -timeout=25 fuzz/regressions/"$t"/*
    fi
    echo "== fuzz_$t: ${seconds} s"
    fork=""
    [ "${FUZZ_JOBS:-1}" -gt 1 ] && fork="-fork=$FUZZ_JOBS"
    status=build/fuzz/status-$t
    # Progress lines are left out; the status survives the pipe in a file.
    { if "$bin" -max_total_time="$seconds" -timeout=25 -print_final_stats=1 $fork \
        -dict="fuzz/$t.dict" -artifact_prefix=build/fuzz/findings/"$t"- \
        "$corpus" "fuzz/corpus/$t"; then echo 0; else echo $?; fi >"$status"; } 2>&1 |
        grep -v -E '^#[0-9]+ +(NEW|REDUCE|pulse) ' || true
    if [ "$(cat "$status")" != 0 ]; then
        echo "fuzz_$t: finding (status $(cat "$status")); inputs in build/fuzz/findings/" >&2
        exit 1
    fi
done
