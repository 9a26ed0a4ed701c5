#!/bin/sh
# Wall time of frames rendered on several cores: the reelfx tool with
# --threads 1 against --threads N, and melt with real_time=-1 against -N
# through the frei0r plug-ins.
#
#   bench/threads.sh [build-dir] [other-build-dir]
#   ROUNDS=3 THREADS=2 EFFECTS='Flood Dream' SIZES='1920x1080' bench/threads.sh build/native
#   TOOL_ARGS='--format ayuv' bench/threads.sh   # options added to every tool run
#
# The input is an uncompressed YUV4MPEG2 clip (4:4:4) of smooth shading with
# noise (FRAMES frames, 50 by default; 25 at 2160 lines). The tool reads it
# and writes YUV4MPEG2 to /dev/null, so decoding and writing cost little next
# to the effect (a compressed clip of noise would make the decoder, which
# stays on one thread, the bottleneck); melt writes rawvideo to /dev/null. Runs alternate (1, N, 1, N,
# ...) so that load from elsewhere on a shared machine falls on both, and
# each figure is the median wall time over ROUNDS rounds, in seconds.
# With a second build folder (for example an older tree's), its frei0r
# plug-ins are measured in the same rounds, in the melt table's last columns.
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/native}"
other="${2:-}"
rounds="${ROUNDS:-3}"
threads="${THREADS:-2}"
effects="${EFFECTS:-Flood Dream Lantern Greyscale}"
sizes="${SIZES:-1920x1080 3840x2160}"
melt_effects="${MELT_EFFECTS:-flood dream}"
tool_args="${TOOL_ARGS:-}"
tool="$PWD/$build/reelfx"

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Median of the numbers on standard input.
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Wall seconds of one command.
wall() {
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 1; }
    end=$(date +%s.%N)
    echo "$end - $start" | bc -l
}

clip() {  # size frames -> file
    out="$tmp/in-$1.y4m"
    [ -f "$out" ] || ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i "nullsrc=s=$1:r=25,\
format=gbrp,geq=r='40+170*X/W+64*random(1)-32':g='40+170*Y/H+64*random(2)-32':\
b='210-85*(X+Y)/(W+H)+64*random(3)-32'" -frames:v "$2" -pix_fmt yuv444p -strict -1 "$out"
    echo "$out"
}

echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
echo
echo "| tool | size | frames | --threads 1 (s) | --threads $threads (s) | ratio |"
echo "|---|---|---:|---:|---:|---:|"
for size in $sizes; do
    frames=${FRAMES:-50}
    [ "$size" = 3840x2160 ] && frames=${FRAMES:-25}
    in=$(clip "$size" "$frames")
    for effect in $effects; do
        : >"$tmp/a"
        : >"$tmp/b"
        for _ in $(seq "$rounds"); do
            wall "$tool" render "$effect" "$in" $tool_args --threads 1 -q -o - >>"$tmp/a"
            wall "$tool" render "$effect" "$in" $tool_args --threads "$threads" -q -o - >>"$tmp/b"
        done
        a=$(median <"$tmp/a")
        b=$(median <"$tmp/b")
        printf '| %s | %s | %s | %.2f | %.2f | %.2f |\n' "$effect" "$size" "$frames" "$a" "$b" \
            "$(echo "$b / $a" | bc -l)"
    done
done

command -v melt >/dev/null || { echo "no melt: the melt table is left out"; exit 0; }
echo
in=$(clip 1920x1080 "${FRAMES:-50}")
header="| melt filter | real_time=-1 (s) | real_time=-$threads (s) | ratio |"
rule="|---|---:|---:|---:|"
[ -n "$other" ] && header="$header other -1 (s) | other -$threads (s) | other ratio |" &&
    rule="$rule---:|---:|---:|"
echo "$header"
echo "$rule"
melt_run() {  # plugin-folder filter real_time
    FREI0R_PATH="$1" wall melt -silent -profile atsc_1080p_25 "$in" -filter "frei0r.reelfx_$2" \
        -consumer avformat:/dev/null f=rawvideo vcodec=rawvideo pix_fmt=bgra "real_time=$3"
}
for effect in $melt_effects; do
    for f in a b c d; do : >"$tmp/$f"; done
    for _ in $(seq "$rounds"); do
        melt_run "$PWD/$build/frei0r-1" "$effect" -1 >>"$tmp/a"
        melt_run "$PWD/$build/frei0r-1" "$effect" "-$threads" >>"$tmp/b"
        if [ -n "$other" ]; then
            melt_run "$other/frei0r-1" "$effect" -1 >>"$tmp/c"
            melt_run "$other/frei0r-1" "$effect" "-$threads" >>"$tmp/d"
        fi
    done
    a=$(median <"$tmp/a")
    b=$(median <"$tmp/b")
    line=$(printf '| %s | %.2f | %.2f | %.2f |' "$effect" "$a" "$b" "$(echo "$b / $a" | bc -l)")
    if [ -n "$other" ]; then
        c=$(median <"$tmp/c")
        d=$(median <"$tmp/d")
        line="$line $(printf ' %.2f | %.2f | %.2f |' "$c" "$d" "$(echo "$d / $c" | bc -l)")"
    fi
    echo "$line"
done
echo
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
