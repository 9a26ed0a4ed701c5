#!/bin/sh
# reelfx effects inside ffmpeg against FFmpeg's nearest native filter, on the
# same 1920x1080 frames, both single-threaded.
#
#   bench/ffmpeg-pairs.sh [build-dir]        (default build/native; needs the
#                                             frei0r_plugins target built there)
#   FRAMES=10 ROUNDS=5 PAIRS='Dream|hue' bench/ffmpeg-pairs.sh build/native
#
# The input is rawvideo made once (smooth shading with noise on every
# channel of every pixel, so nearly every pixel has a colour of its own),
# stored in each pixel format a filter works in, so no run converts pixels.
# Each run is
#   ffmpeg -threads 1 -filter_threads 1 -f rawvideo ... -i in -vf F -f null -
# with the reelfx effect through its frei0r plug-in (bgra, initial parameters,
# Progress 0.5) or the counterpart in its native format, and is taken net of a
# `-vf null` run on the same input in the same round. Times are user CPU time
# (ffmpeg -benchmark utime), so other load on a shared machine counts less;
# the rounds alternate the runs and every figure is the median over rounds,
# in ms per frame. ratio = reelfx / counterpart (below 1: reelfx is faster).
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/native}"
frames="${FRAMES:-10}"
rounds="${ROUNDS:-5}"
only="${PAIRS:-.}"
plugins="$PWD/$build/frei0r-1"
[ -d "$plugins" ] || { echo "no $plugins: build the frei0r_plugins target first" >&2; exit 1; }

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
size=1920x1080
# Smooth shading with independent noise on every channel of every pixel.
ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i "nullsrc=s=$size:r=25,format=gbrp,geq=\
r='40+170*X/W+64*random(1)-32':g='40+170*Y/H+64*random(2)-32':b='210-85*(X+Y)/(W+H)+64*random(3)-32'" \
    -frames:v "$frames" -pix_fmt bgra -f rawvideo "$tmp/bgra.raw"
for fmt in yuv444p gbrap; do
    ffmpeg -nostdin -hide_banner -loglevel error -f rawvideo -pix_fmt bgra -s "$size" \
        -i "$tmp/bgra.raw" -pix_fmt "$fmt" -f rawvideo "$tmp/$fmt.raw"
done

# effect (frei0r plug-in) | counterpart label | its pixel format | its filter
pairs='flip_xy|hflip|bgra|hflip
crop|crop|bgra|crop=1600:900
fade_to_black|fade|bgra|fade=t=in:s=0:n=1000
fade_to_grey|fade|bgra|fade=t=in:s=0:n=1000
fade_to_white|fade|bgra|fade=t=in:s=0:n=1000:c=white
fade_to_sepia|fade|bgra|fade=t=in:s=0:n=1000:c=0x704214
fade_to_color|fade|bgra|fade=t=in:s=0:n=1000:c=black
greyscale|colorchannelmixer|bgra|colorchannelmixer=.3:.4:.3:0:.3:.4:.3:0:.3:.4:.3
sepiascale|colorchannelmixer|bgra|colorchannelmixer=.393:.769:.189:0:.349:.686:.168:0:.272:.534:.131
colorscale|colorchannelmixer|bgra|colorchannelmixer=.3:.4:.3:0:.2:.3:.2:0:.1:.2:.1
night_vision|colorchannelmixer|bgra|colorchannelmixer=0:0:0:0:.3:.59:.11:0:0:0:0
color_circle_shift|hue=h=90|yuv444p|hue=h=90
dream|boxblur=2:1|gbrap|boxblur=2:1
dream|gblur=sigma=4|gbrap|gblur=sigma=4
binoculars|vignette|yuv444p|vignette
lantern|vignette|yuv444p|vignette
mosaic|scale neighbor x1/10 x10|bgra|scale=iw/10:ih/10:flags=neighbor,scale=iw*10:ih*10:flags=neighbor
incognito|scale neighbor x1/10 x10|bgra|scale=iw/10:ih/10:flags=neighbor,scale=iw*10:ih*10:flags=neighbor
crop_scale_to_fit|scale bicubic 1600x900|bgra|scale=1600:900:flags=bicubic
crop_scale_to_fill|scale bicubic 1600x900|bgra|scale=1600:900:flags=bicubic'
pairs=$(printf '%s\n' "$pairs" | grep -E "$only" || true)
[ -n "$pairs" ] || { echo "no pair matches $only" >&2; exit 1; }

# User CPU seconds of one ffmpeg run: format, filter.
run() {
    FREI0R_PATH="$plugins" ffmpeg -nostdin -hide_banner -benchmark -threads 1 -filter_threads 1 \
        -f rawvideo -pix_fmt "$1" -s "$size" -i "$tmp/$1.raw" -vf "$2" -f null - 2>&1 |
        sed -n 's/.*bench: utime=\([0-9.]*\)s.*/\1/p' | tail -1 | grep . ||
        { echo "ffmpeg failed: -pix_fmt $1 -vf $2" >&2; exit 1; }
}

# One line per pair and round: effect, counterpart, reelfx ms, counterpart ms.
r=1
while [ "$r" -le "$rounds" ]; do
    printf '%s\n' "$pairs" | while IFS='|' read -r effect label fmt filter; do
        null_bgra=$(run bgra null)
        ours=$(run bgra "frei0r=filter_name=reelfx_$effect")
        null_fmt=$(run "$fmt" null)
        theirs=$(run "$fmt" "$filter")
        awk -v e="$effect" -v l="$label" -v o="$ours" -v on="$null_bgra" -v t="$theirs" \
            -v tn="$null_fmt" -v f="$frames" \
            'BEGIN { printf "%s|%s|%.3f|%.3f\n", e, l, (o - on) * 1000 / f, (t - tn) * 1000 / f }'
    done
    r=$((r + 1))
done > "$tmp/rounds.txt"

echo "ffmpeg-pairs: $size, $frames frames, $rounds rounds, medians of user CPU ms per frame net of -vf null"
printf '%-22s %10s  %-30s %10s %7s\n' effect "reelfx ms" counterpart "its ms" ratio
awk -F'|' '
function median(list,   n, a, i, j, t) {
    n = split(list, a, " ")
    for (i = 2; i <= n; ++i) { t = a[i]; for (j = i - 1; j >= 1 && a[j] > t; --j) a[j + 1] = a[j]; a[j + 1] = t }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
}
{ key = $1 "|" $2; if (!(key in ours)) order[++n] = key; ours[key] = ours[key] " " $3; theirs[key] = theirs[key] " " $4 }
END {
    for (i = 1; i <= n; ++i) {
        split(order[i], k, "|")
        o = median(ours[order[i]]); t = median(theirs[order[i]])
        printf "%-22s %10.2f  %-30s %10.2f %7s\n", k[1], o, k[2], t, (t > 0 ? sprintf("%.2f", o / t) : "-")
    }
}' "$tmp/rounds.txt"
