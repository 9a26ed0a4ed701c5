#!/bin/sh
# Installing like real software:
# 1. cmake --install into a temporary prefix: the layout is complete and
#    every frei0r plug-in loads from there with FREI0R_PATH alone (ffmpeg
#    renders one frame through each of the 25);
#    the GStreamer plug-in lists its 25 elements from there;
# 2. the Debian package from cpack is lintian-clean, installs with apt-get,
#    and then - without FREI0R_PATH - ffmpeg, GStreamer (frei0r and the
#    native plug-in) and melt render clips equal, frame for frame, to the
#    same frames rendered by the reelfx tool through host/; Kdenlive's
#    descriptions are well-formed and name frei0r filters that MLT lists, and
#    so do the 25 Shotcut filter folders;
# 3. apt-get remove leaves none of the package's files behind (it has no
#    configuration files, so nothing is left for a purge either).
# Takes the build folder as its argument (default build/native); runs as root.
set -eu
cd "$(dirname "$0")/../.."
build=${1:-build/native}
tool=$PWD/$build/reelfx
arch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

slugs=$(ls "$build/frei0r-1" | sed -n 's/^reelfx_\(.*\)\.so$/\1/p')
[ "$(echo "$slugs" | wc -l)" -eq 25 ] || fail "expected 25 plug-ins in $build/frei0r-1"

# Nothing of an earlier installation may stand in for the prefix's files.
if dpkg -s reelfx >/dev/null 2>&1; then apt-get purge -y reelfx >/dev/null; fi

echo "-- cmake --install into a temporary prefix"
P=$tmp/prefix
cmake --install "$build" --prefix "$P" >/dev/null
for f in bin/reelfx lib/$arch/reelfx/libreelfx.so lib/$arch/reelfx/libresizer.so \
         lib/$arch/reelfx/libreelfx_frei0r.so \
         lib/$arch/libreelfx_host.a lib/$arch/pkgconfig/reelfx.pc \
         include/reelfx/host/host.h include/reelfx/plugin/host_records.h; do
    [ -f "$P/$f" ] || fail "missing $f"
done
[ "$(ls "$P"/lib/frei0r-1/reelfx_*.so | wc -l)" -eq 25 ] || fail "not 25 plug-ins in lib/frei0r-1"
[ "$(ls "$P"/share/kdenlive/effects/reelfx_*.xml | wc -l)" -eq 25 ] || fail "not 25 Kdenlive descriptions"
[ "$(ls "$P"/share/shotcut/qml/filters/reelfx_*/meta.qml "$P"/share/shotcut/qml/filters/reelfx_*/ui.qml |
    wc -l)" -eq 50 ] || fail "not 25 Shotcut filter folders with meta.qml and ui.qml"
# The GStreamer plug-in loads the module from the prefix's module folder.
elements=$(env -i PATH="$PATH" GST_REGISTRY="$tmp/prefix-registry.bin" \
    GST_PLUGIN_PATH="$P/lib/$arch/gstreamer-1.0" gst-inspect-1.0 reelfx 2>&1 | grep -c '^  reelfx-' || true)
[ "$elements" -eq 25 ] || fail "the GStreamer plug-in from the prefix lists $elements elements, not 25"
# A host of one's own, built from the prefix with pkg-config alone.
export PKG_CONFIG_PATH=$P/lib/$arch/pkgconfig
cat >"$tmp/myhost.cpp" <<'EOF'
#include <host/host.h>
#include <cstdio>
int main(int, char** argv) {
    const reelfx::Module module(argv[1]);
    std::printf("%zu\n", module.catalogue().size());
}
EOF
# shellcheck disable=SC2046
g++ "$tmp/myhost.cpp" -o "$tmp/myhost" $(pkg-config --cflags --libs reelfx) || fail "a host built with reelfx.pc"
[ "$("$tmp/myhost" "$(pkg-config --variable=moduledir reelfx)/libreelfx.so")" = 25 ] ||
    fail "a host built with reelfx.pc does not list 25 effects from moduledir"
unset PKG_CONFIG_PATH
for s in $slugs; do
    env -i PATH="$PATH" FREI0R_PATH="$P/lib/frei0r-1" ffmpeg -hide_banner -loglevel error \
        -f lavfi -i testsrc2=size=64x48 -frames:v 1 -vf "frei0r=filter_name=reelfx_$s" \
        -f rawvideo -pix_fmt bgra "$tmp/one.raw" -y || fail "ffmpeg with reelfx_$s from the prefix"
    [ "$(wc -c <"$tmp/one.raw")" -eq $((64 * 48 * 4)) ] || fail "reelfx_$s: no frame"
done
echo "all 25 plug-ins render a frame from the prefix"
# REELFX_MODULE overrides the module beside the adapter library.
mosaic() {
    env -i PATH="$PATH" FREI0R_PATH="$P/lib/frei0r-1" REELFX_MODULE="$1" ffmpeg -hide_banner \
        -loglevel error -f lavfi -i testsrc2=size=64x48 -frames:v 1 -vf frei0r=filter_name=reelfx_mosaic \
        -f null - 2>/dev/null
}
mkdir "$tmp/elsewhere"
cp "$P/lib/$arch/reelfx/libreelfx.so" "$P/lib/$arch/reelfx/libresizer.so" "$tmp/elsewhere/"
mosaic "$tmp/elsewhere/libreelfx.so" || fail "REELFX_MODULE naming a copy of the module"
! mosaic "$tmp/elsewhere/missing.so" || fail "REELFX_MODULE naming no file is not used"

echo "-- the Debian package"
(cd "$build" && rm -f reelfx_*.deb && cpack >/dev/null)
deb=$(ls "$PWD/$build"/reelfx_*_*.deb)
lintian --fail-on error,warning "$deb"
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$deb" >/dev/null
files=$(dpkg -L reelfx)
unset FREI0R_PATH REELFX_MODULE 2>/dev/null || true

# Three frames of 64x48 BGRA, as raw frames, a lossless clip and PNG stills.
ffmpeg -hide_banner -loglevel error -f lavfi -i "testsrc2=size=64x48:rate=25,format=bgra" \
    -frames:v 3 -f rawvideo "$tmp/in.raw"
ffmpeg -hide_banner -loglevel error -f rawvideo -pix_fmt bgra -s 64x48 -r 25 -i "$tmp/in.raw" \
    -c:v ffv1 -pix_fmt bgra "$tmp/in.mkv"
ffmpeg -hide_banner -loglevel error -f rawvideo -pix_fmt bgra -s 64x48 -i "$tmp/in.raw" \
    -start_number 0 "$tmp/in_%d.png"
# reference EFFECT "PROGRESS0 PROGRESS1 PROGRESS2" PARAMS...: the frames the
# tool renders through host/, as raw BGRA in $tmp/ref.raw.
reference() {
    effect=$1; progress=$2; shift 2
    : >"$tmp/ref.raw"
    i=0
    for t in $progress; do
        "$tool" render "$effect" "$tmp/in_$i.png" "$@" --progress "$t" -o "$tmp/ref.png" -y \
            >/dev/null 2>&1 || fail "reelfx render $effect"
        ffmpeg -hide_banner -loglevel error -i "$tmp/ref.png" -f rawvideo -pix_fmt bgra - >>"$tmp/ref.raw"
        i=$((i + 1))
    done
}
same() { cmp -s "$tmp/ref.raw" "$1" || fail "$2: frames differ from the host's"; echo "$2: 3 frames equal the host's"; }

reference Lantern "0.5 0.5 0.5" -p "Fading=30" -p "Spot Radius=10.5" -p "AntiAliasing=50"
ffmpeg -hide_banner -loglevel error -f rawvideo -pix_fmt bgra -s 64x48 -i "$tmp/in.raw" \
    -vf "frei0r=filter_name=reelfx_lantern:filter_params=0.3|0.5|0.5|0.5" \
    -f rawvideo -pix_fmt bgra "$tmp/ffmpeg.raw"
same "$tmp/ffmpeg.raw" "ffmpeg reelfx_lantern"

reference NewsPrint "0.5 0.5 0.5" -p "Resolution=0.3" -p "Dot Shape=Uniform"
gst-launch-1.0 -q filesrc location="$tmp/in.raw" \
    ! rawvideoparse width=64 height=48 format=bgra framerate=25/1 \
    ! frei0r-filter-reelfx-newsprint resolution=0.3 dot-shape=Uniform \
    ! filesink location="$tmp/gst.raw"
same "$tmp/gst.raw" "gst-launch-1.0 frei0r-filter-reelfx-newsprint"
# The native element, found in GStreamer's own plug-in folder, on the same frames.
export GST_REGISTRY="$tmp/registry.bin"
[ "$(gst-inspect-1.0 reelfx 2>&1 | grep -c '^  reelfx-' || true)" -eq 25 ] ||
    fail "the installed GStreamer plug-in does not list 25 elements"
gst-launch-1.0 -q filesrc location="$tmp/in.raw" \
    ! rawvideoparse width=64 height=48 format=bgra framerate=25/1 \
    ! reelfx-newsprint resolution=0.3 dot-shape=uniform progress=0.5 \
    ! filesink location="$tmp/gst-native.raw"
same "$tmp/gst-native.raw" "gst-launch-1.0 reelfx-newsprint"
unset GST_REGISTRY

# melt: margins on the frame's own size (0.25 x 48 = 12 rows, 0.1 x 64 = 6.4
# columns, truncated), Progress keyframed 0 -> 1 over the three frames.
reference "Crop Scale To Fit" "0 0.5 1" -p "Top (Pixel)=12" -p "Left (Pixel)=6"
printf '%s\n' description=reelfx frame_rate_num=25 frame_rate_den=1 width=64 height=48 \
    progressive=1 sample_aspect_num=1 sample_aspect_den=1 display_aspect_num=4 \
    display_aspect_den=3 colorspace=601 >"$tmp/profile"
melt -silent -profile "$tmp/profile" "$tmp/in.mkv" -filter frei0r.reelfx_crop_scale_to_fit \
    "Top (Pixel)=0.25" "Left (Pixel)=0.1" "Progress=0=0;2=1" \
    -consumer "avformat:$tmp/melt.raw" f=rawvideo vcodec=rawvideo pix_fmt=bgra real_time=-1 \
    >/dev/null 2>&1
same "$tmp/melt.raw" "melt frei0r.reelfx_crop_scale_to_fit"

# Kdenlive's descriptions: well-formed, each naming a filter MLT lists.
melt -query filters 2>/dev/null | sed -n 's/^ *- \(frei0r\.reelfx_.*\)$/\1/p' >"$tmp/filters"
[ "$(wc -l <"$tmp/filters")" -eq 25 ] || fail "MLT does not list 25 reelfx filters"
for xml in /usr/share/kdenlive/effects/reelfx_*.xml; do
    xmllint --noout "$xml" || fail "$xml is not well-formed"
    tag=$(sed -n 's/.*<effect tag="\([^"]*\)".*/\1/p' "$xml")
    grep -qx "$tag" "$tmp/filters" || fail "$xml names $tag, which MLT does not list"
done
echo "25 Kdenlive descriptions, well-formed, naming filters MLT lists"
for meta in /usr/share/shotcut/qml/filters/reelfx_*/meta.qml; do
    service=$(sed -n "s/^ *mlt_service: '\(.*\)'$/\1/p" "$meta")
    grep -qx "$service" "$tmp/filters" || fail "$meta names $service, which MLT does not list"
done
[ "$(ls -d /usr/share/shotcut/qml/filters/reelfx_* | wc -l)" -eq 25 ] || fail "not 25 Shotcut folders"
echo "25 Shotcut filter folders naming filters MLT lists"
"$(command -v reelfx)" list >/dev/null || fail "the installed reelfx tool"

echo "-- apt-get remove"
DEBIAN_FRONTEND=noninteractive apt-get remove -y reelfx >/dev/null
left=0
for f in $files; do
    # Files, and folders of the package's own that dpkg left behind empty.
    if [ -e "$f" ] && { [ ! -d "$f" ] || [ -z "$(ls -A "$f")" ]; }; then
        echo "left behind: $f" >&2; left=1
    fi
done
[ "$left" -eq 0 ] || fail "files of the package remain"
[ ! -e /usr/share/kdenlive/effects/reelfx_lantern.xml ] || fail "Kdenlive descriptions remain"
[ ! -e "/usr/lib/$arch/gstreamer-1.0/libgstreelfx.so" ] || fail "the GStreamer plug-in remains"
[ -z "$(ls -d /usr/share/shotcut/qml/filters/reelfx_* 2>/dev/null)" ] || fail "Shotcut folders remain"
case $(dpkg-query -W -f='${Status}' reelfx 2>/dev/null || true) in
    "" | *not-installed) ;;
    *) fail "dpkg still holds reelfx after remove: $(dpkg-query -W -f='${Status}' reelfx)" ;;
esac
echo "nothing of the package remains, not even its configuration"
