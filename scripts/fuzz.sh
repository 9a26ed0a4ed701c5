#!/bin/sh
# Builds the libFuzzer targets with the fuzz preset (clang, ASan + UBSan) and
# runs each for SECONDS (default 60):
#   scripts/fuzz.sh [SECONDS] [TARGET...]     targets: render resizer params
# Each target starts from its committed seeds (fuzz/corpus/TARGET) and grows
# its working corpus in build/fuzz/corpus/TARGET, with fuzz/TARGET.dict. The
# reproducers in fuzz/regressions/TARGET are run first. Any finding (crash,
# sanitizer report, failed check, leak, a unit slower than 25 s or above the
# memory limit) stops the run with a non-zero status; the input is left in
# build/fuzz/findings/. FUZZ_JOBS=N runs N processes per target (fork mode);
# FUZZ_PARALLEL=1 runs the targets side by side.
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
fork=""
[ "${FUZZ_JOBS:-1}" -gt 1 ] && fork="-fork=$FUZZ_JOBS"

# One target: its reproducers, then SECONDS of fuzzing. What it prints (less
# the progress lines) goes to build/fuzz/log-TARGET, its status to
# build/fuzz/status-TARGET.
run_target() {
    t=$1
    bin=build/fuzz/fuzz_$t
    corpus=build/fuzz/corpus/$t
    mkdir -p "$corpus"
    {
        if [ -d "fuzz/regressions/$t" ] && [ -n "$(ls -A "fuzz/regressions/$t")" ]; then
            echo "== fuzz_$t: regressions"
            "$bin" -timeout=25 fuzz/regressions/"$t"/* || { echo $? >build/fuzz/status-"$t"; return; }
        fi
        echo "== fuzz_$t: ${seconds} s"
        if "$bin" -max_total_time="$seconds" -timeout=25 -print_final_stats=1 $fork \
            -dict="fuzz/$t.dict" -artifact_prefix=build/fuzz/findings/"$t"- \
            "$corpus" "fuzz/corpus/$t"; then echo 0; else echo $?; fi >build/fuzz/status-"$t"
    } 2>&1 | grep -v -E '^#[0-9]+[[:space:]]+(NEW|REDUCE|pulse)[[:space:]]' >build/fuzz/log-"$t" || true
}

# FUZZ_PARALLEL=1 runs the targets at the same time (CI: one core each,
# shared), otherwise one after the other.
for t in $targets; do
    rm -f build/fuzz/status-"$t"
    if [ "${FUZZ_PARALLEL:-0}" = 1 ]; then run_target "$t" & else run_target "$t"; fi
done
wait
failed=0
for t in $targets; do
    cat build/fuzz/log-"$t"
    if [ "$(cat build/fuzz/status-"$t" 2>/dev/null)" != 0 ]; then
        echo "fuzz_$t: finding (status $(cat build/fuzz/status-"$t" 2>/dev/null)); inputs in build/fuzz/findings/" >&2
        failed=1
    fi
done
exit $failed
