#!/bin/sh
# The frei0r plug-ins under concurrent hosts:
# 1. a ThreadSanitizer build of the module and the plug-ins (preset tsan)
#    renders instances of every effect but Aged Film from four threads
#    through the entry, and runs several plug-ins from four threads on
#    separate instances: no report, the deterministic effects draw what one
#    thread draws, and the plug-ins' renders overlap inside the module;
#    the reelfx tool's parallel render under the same sanitizer gives the
#    frames of one worker;
# 2. melt with four rendering threads (real_time=-4) gives the same frames
#    as with one (real_time=-1), through the native build's plug-ins.
set -eu
cd "$(dirname "$0")/../.."

echo "-- ThreadSanitizer: four threads, separate instances"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$(nproc 2>/dev/null || echo 2)"
TSAN_OPTIONS="halt_on_error=1 exitcode=66 ${TSAN_OPTIONS:-}" build/tsan/module_threads
TSAN_OPTIONS="halt_on_error=1 exitcode=66 ${TSAN_OPTIONS:-}" build/tsan/frei0r_threads

echo "-- ThreadSanitizer: the reelfx tool's workers (decoding, rendering, encoding threads)"
# The same sanitizer build with the tool: three workers against one for every
# effect in both formats, pipes, pixel layouts and signals. FFmpeg's own
# thread pools are not instrumented and are left out (tests/tsan-ffmpeg.supp).
cmake --preset tsan -B build/tsan-tools -DREELFX_TOOLS=ON >/dev/null
cmake --build build/tsan-tools --target reelfx_tool test_tool_threads -j "$(nproc 2>/dev/null || echo 2)"
TSAN_OPTIONS="halt_on_error=1 exitcode=66 suppressions=$PWD/tests/tsan-ffmpeg.supp ${TSAN_OPTIONS:-}" \
    build/tsan-tools/test_tool_threads --gtest_filter='-*WorkerErrorEndsTheRun'

echo "-- melt: four rendering threads against one"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc2=size=160x120:rate=25 \
    -frames:v 12 -c:v ffv1 "$tmp/in.mkv"
for filter in "reelfx_mosaic Resolution=0.3" "reelfx_dream Blur\ Intensity=0.5" \
              "reelfx_lantern Spot\ Radius=0.7" "reelfx_newsprint"; do
    for threads in -1 -4; do
        eval "set -- $filter"
        name=$1; shift
        FREI0R_PATH="$PWD/build/native/frei0r-1" melt -silent "$tmp/in.mkv" \
            -filter "frei0r.$name" "$@" "Progress=0=0;11=1" \
            -consumer "avformat:$tmp/out$threads.raw" f=rawvideo vcodec=rawvideo \
            pix_fmt=bgra width=160 height=120 "real_time=$threads" >/dev/null 2>&1
    done
    size=$(wc -c <"$tmp/out-1.raw")
    if [ "$size" -ne $((160 * 120 * 4 * 12)) ] || ! cmp -s "$tmp/out-1.raw" "$tmp/out-4.raw"; then
        echo "melt $name: four threads differ from one (or frames are missing)" >&2
        exit 1
    fi
    echo "melt $name: 12 frames equal with 1 and 4 threads"
done
