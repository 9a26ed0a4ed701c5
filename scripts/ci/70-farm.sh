#!/bin/sh
# Chunked renders as a farm runs them: a 6-second clip with audio is split by
# `reelfx plan`, its chunks are rendered by GNU parallel and by a job array on
# a one-node Slurm cluster started here (as root, no munge, no cgroups), and
# `reelfx join` puts them together. The joined video must decode to exactly
# the frames (and timestamps) of a whole render, for effects with and without
# state carried from frame to frame, in both pixel formats, with the source's
# audio and tags; an .mp4 join must have the whole render's frame count,
# timestamps, audio length and tags. Then join's refusals: each names the
# problem and writes nothing.
set -eu
cd "$(dirname "$0")/../.."
reelfx=$PWD/build/native/reelfx
work=$(mktemp -d)
slurm_pids=""
# The daemons started here, stopped by their ids, waited for.
stop_slurm() {
    for pid in $slurm_pids; do kill "$pid" 2> /dev/null || true; done
    for pid in $slurm_pids; do
        tries=0
        while kill -0 "$pid" 2> /dev/null && [ $tries -lt 100 ]; do
            tries=$((tries + 1))
            sleep 0.1
        done
    done
    slurm_pids=""
}
cleanup() {
    stop_slurm
    rm -rf "$work"
}
trap cleanup EXIT
cd "$work"

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
# The decoded frames' checksums, and every packet's stream and time.
frames() { ffmpeg -v error -i "$1" -map 0:v -f framemd5 - | grep -v '^#' | cut -d, -f6; }
stamps() { ffprobe -v error -show_entries packet=stream_index,pts -of csv=p=0 "$1"; }
tags() { ffprobe -v error -show_entries format_tags:stream_tags -of compact "$1"; }
same_video() {
    frames "$1" > a.md5
    frames "$2" > b.md5
    [ -s a.md5 ] || fail "$1 decodes to no frames"
    cmp -s a.md5 b.md5 || fail "$2 does not decode to the frames of $1 ($3)"
    stamps "$1" > a.ts
    stamps "$2" > b.ts
    cmp -s a.ts b.ts || fail "$2 does not have the timestamps of $1 ($3)"
    tags "$1" > a.tags
    tags "$2" > b.tags
    cmp -s a.tags b.tags || fail "$2 has tags $(cat b.tags), not $(cat a.tags) ($3)"
}

ffmpeg -v error -f lavfi -i testsrc2=size=160x90:rate=25:duration=6 \
    -f lavfi -i sine=frequency=440:duration=6 \
    -c:v libx264 -g 25 -pix_fmt yuv420p -c:a aac -shortest \
    -metadata title=Holiday -metadata:s:v language=fra -metadata:s:a language=eng clip.mp4

echo "-- plan"
"$reelfx" plan clip.mp4 --chunks 4 > plan.txt
[ "$(cat plan.txt | tr '\n' ' ')" = "0:37 37:75 75:112 112:150 " ] ||
    fail "plan of 150 frames in 4 chunks: $(cat plan.txt | tr '\n' ' ')"
"$reelfx" plan clip.mp4 --chunk-frames 64 --json > plan.json
grep -q '"total_frames": 150' plan.json || fail "plan --json lacks the total frame count"
[ "$(grep -c '"frames":' plan.json)" = 3 ] || fail "plan --chunk-frames 64 of 150 frames"

echo "-- GNU parallel: chunks joined equal a whole render"
# Keyframes and a span make the progress of a chunk's frames depend on the
# whole clip; noise makes Incognito's frames depend on the generator's state.
# The chunks of the stateful effects replay only the span's frames before them.
for format in argb ayuv; do
    for effect in lantern mosaic aged-film aged-film-span incognito-round incognito; do
        case $effect in
            lantern) set -- Lantern -p "Spot Radius=2@0,18@1" ;;
            mosaic) set -- Mosaic --span 1:5 ;;
            aged-film) set -- "Aged Film" ;;
            aged-film-span) set -- "Aged Film" -p "Number of dust particles=40@0,90@1" --span 1:5 ;;
            incognito) set -- Incognito -p Noise=0.6 ;;
            incognito-round)
                set -- Incognito -p Noise=0.9 -p Shape=Round -p "X Size=0.3@0,0.9@1" --span 0.5:4.5
                ;;
        esac
        "$reelfx" render "$@" clip.mp4 --format "$format" -o whole.mkv -y -q
        rm -f chunk-*.mkv
        parallel --halt now,fail=1 -j 2 -q "$reelfx" render "$@" clip.mp4 \
            --format "$format" --frames {} -o chunk-{#}.mkv -y -q :::: plan.txt
        "$reelfx" join chunk-*.mkv -o joined.mkv --audio-from clip.mp4 -y -q
        same_video whole.mkv joined.mkv "$effect, $format"
        echo "$effect $format: equal"
    done
done

echo "-- the built-in clip and a still are split the same way"
ffmpeg -v error -i clip.mp4 -frames:v 1 still.png
for input in none still.png; do
    if [ "$input" = none ]; then
        set -- --size 160x90 --duration 2
        effect="Aged Film"
    else
        set -- "$input" --duration 2
        effect=Incognito
    fi
    "$reelfx" plan "$@" --chunks 3 > short-plan.txt
    [ "$(cat short-plan.txt | tr '\n' ' ')" = "0:16 16:33 33:50 " ] ||
        fail "plan of 50 frames from $input: $(cat short-plan.txt)"
    rm -f short-*.mkv
    if [ "$effect" = Incognito ]; then set -- -p Noise=0.6 "$@"; fi
    "$reelfx" render "$effect" "$@" -o whole-short.mkv -y -q
    parallel --halt now,fail=1 -q "$reelfx" render "$effect" "$@" --frames {} \
        -o short-{#}.mkv -y -q :::: short-plan.txt
    "$reelfx" join short-*.mkv -o joined-short.mkv -y -q
    same_video whole-short.mkv joined-short.mkv "$effect from $input"
    echo "$effect from $input: equal"
done

echo "-- .mp4 join: frame count, timestamps, audio length"
# The last chunks of the GNU parallel round: Incognito with noise, AYUV.
"$reelfx" render Incognito -p Noise=0.6 clip.mp4 --format ayuv -o whole.mp4 -y -q
"$reelfx" join chunk-*.mkv -o joined.mp4 --audio-from clip.mp4 -y -q
for f in whole.mp4 joined.mp4; do
    ffprobe -v error -count_packets -show_entries stream=codec_type,nb_read_packets,duration \
        -of csv=p=0 "$f" > "$f.streams"
    ffprobe -v error -select_streams v -show_entries packet=pts -of csv=p=0 "$f" > "$f.pts"
done
cmp -s whole.mp4.streams joined.mp4.streams ||
    fail "joined.mp4: $(cat joined.mp4.streams) instead of $(cat whole.mp4.streams)"
grep -q '^video,6.000000,150$' joined.mp4.streams || fail "joined.mp4: $(cat joined.mp4.streams)"
cmp -s whole.mp4.pts joined.mp4.pts || fail "joined.mp4 has other video timestamps"
tags whole.mp4 > a.tags
tags joined.mp4 > b.tags
cmp -s a.tags b.tags || fail "joined.mp4 has tags $(cat b.tags), not $(cat a.tags)"

echo "-- a clip whose frame rate changes keeps its timestamps"
ffmpeg -v error -i clip.mp4 -vf "setpts=PTS+if(gt(N\,60)\,0.5/TB\,0)" -fps_mode vfr \
    -c:v libx264 -g 25 -c:a copy vfr.mp4
"$reelfx" plan vfr.mp4 --chunks 3 > vfr-plan.txt
"$reelfx" render Incognito -p Noise=0.6 vfr.mp4 -o whole-vfr.mkv -y -q
"$reelfx" render Incognito -p Noise=0.6 vfr.mp4 -o whole-vfr.mp4 -y -q
parallel --halt now,fail=1 -q "$reelfx" render Incognito -p Noise=0.6 vfr.mp4 --frames {} \
    -o vfr-{#}.mkv -y -q :::: vfr-plan.txt
"$reelfx" join vfr-*.mkv -o joined-vfr.mkv --audio-from vfr.mp4 -y -q
"$reelfx" join vfr-*.mkv -o joined-vfr.mp4 --audio-from vfr.mp4 -y -q
same_video whole-vfr.mkv joined-vfr.mkv "a changing frame rate"
stamps whole-vfr.mp4 > a.ts
stamps joined-vfr.mp4 > b.ts
cmp -s a.ts b.ts || fail "joined-vfr.mp4 does not have the timestamps of whole-vfr.mp4"

echo "-- re-running a chunk"
"$reelfx" render Incognito -p Noise=0.6 clip.mp4 --format ayuv --frames 37:75 -o chunk-2.mkv -y -q
if "$reelfx" render Incognito -p Noise=0.6 clip.mp4 --format ayuv --frames 37:75 -o chunk-2.mkv -q \
    < /dev/null 2> err.txt; then
    fail "an existing chunk was replaced without -y"
fi
"$reelfx" join chunk-*.mkv -o joined.mkv --audio-from clip.mp4 -y -q
same_video whole.mkv joined.mkv "a chunk rendered again"
if "$reelfx" render Lantern clip.mp4 --frames 0:10 -o chunk.mp4 -q -y 2> err.txt; then
    fail "a chunk was written as .mp4"
fi
grep -q 'losslessly as FFV1 in Matroska' err.txt || fail "--frames with .mp4: $(cat err.txt)"

echo "-- join refuses"
"$reelfx" render Lantern clip.mp4 --format ayuv --frames 37:75 -o lantern-2.mkv -y -q
ffmpeg -v error -i clip.mp4 -vf scale=320:180 -c:a copy large.mp4
"$reelfx" render Incognito -p Noise=0.6 large.mp4 --format ayuv --frames 37:75 -o large-2.mkv -y -q
"$reelfx" render Incognito -p Noise=0.6 clip.mp4 --format ayuv --frames 30:80 -o wide-2.mkv -y -q
size=$(wc -c < chunk-3.mkv)
head -c $((size / 2)) chunk-3.mkv > cut-3.mkv
refused() {
    message=$1
    shift
    rm -f out.mkv
    if "$reelfx" join "$@" -o out.mkv -y 2> err.txt; then fail "join $* was not refused"; fi
    grep -qF "$message" err.txt || fail "join $*: '$(cat err.txt)' does not say '$message'"
    [ ! -e out.mkv ] || fail "join $* left out.mkv behind"
    [ -z "$(find . -name '.reelfx-*')" ] || fail "join $* left a temporary file behind"
    echo "refused: $(cat err.txt)"
}
refused "the chunk of frames 37:75 is missing (between chunk-1.mkv and chunk-3.mkv)" \
    chunk-1.mkv chunk-3.mkv chunk-4.mkv
refused "the chunk chunk-9.mkv is missing" chunk-1.mkv chunk-2.mkv chunk-9.mkv
refused "wide-2.mkv (frames 30:80) overlaps chunk-1.mkv (frames 0:37)" \
    chunk-1.mkv wide-2.mkv chunk-3.mkv chunk-4.mkv
refused "lantern-2.mkv is not part of the same render as chunk-1.mkv: it has effect Lantern" \
    chunk-1.mkv lantern-2.mkv chunk-3.mkv chunk-4.mkv
refused "it has size 320x180, not 160x90" chunk-1.mkv large-2.mkv chunk-3.mkv chunk-4.mkv
refused "cut-3.mkv is truncated or damaged" chunk-1.mkv chunk-2.mkv cut-3.mkv chunk-4.mkv
# An output that is one of the chunks is refused even with -y, and the chunk stays.
cp chunk-2.mkv keep-2.mkv
if "$reelfx" join chunk-1.mkv chunk-2.mkv chunk-3.mkv chunk-4.mkv -o chunk-2.mkv -y 2> err.txt; then
    fail "join wrote over its own chunk"
fi
cmp -s chunk-2.mkv keep-2.mkv || fail "join changed its own chunk chunk-2.mkv"
echo "refused: $(cat err.txt)"

echo "-- Slurm: a job array and a dependent join on a one-node cluster"
[ "$(id -u)" -eq 0 ] || fail "the one-node Slurm cluster runs as root"
host=$(hostname -s)
mkdir -p slurm/state slurm/spool
cat > slurm/slurm.conf <<EOF
ClusterName=reelfx
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=16817
SlurmdPort=16818
AuthType=auth/none
CredType=cred/none
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SlurmUser=root
SlurmdUser=root
StateSaveLocation=$work/slurm/state
SlurmdSpoolDir=$work/slurm/spool
SlurmctldPidFile=$work/slurm/slurmctld.pid
SlurmdPidFile=$work/slurm/slurmd.pid
SlurmctldLogFile=$work/slurm/slurmctld.log
SlurmdLogFile=$work/slurm/slurmd.log
MpiDefault=none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=farm Nodes=$host Default=YES MaxTime=INFINITE State=UP
EOF
export SLURM_CONF="$work/slurm/slurm.conf"
slurmctld -D -c > slurm/slurmctld.out 2>&1 &
slurm_pids=$!
slurmd -D > slurm/slurmd.out 2>&1 &
slurm_pids="$slurm_pids $!"
tries=0
until [ "$(sinfo -h -o %T 2> /dev/null)" = idle ]; do
    tries=$((tries + 1))
    [ $tries -lt 60 ] || fail "the Slurm node did not come up: $(tail -5 slurm/*.log)"
    sleep 1
done
for pid in $slurm_pids; do
    kill -0 "$pid" || fail "a Slurm daemon stopped (another cluster on ports 16817-16818?): $(cat slurm/*.out)"
done
"$reelfx" render "Aged Film" clip.mp4 -o whole.mkv -y -q
rm -f chunk-*.mkv
cat > chunk.sbatch <<EOF
#!/bin/sh
#SBATCH --job-name=reelfx-chunk
#SBATCH --output=chunk-%a.log
range=\$(sed -n "\$((SLURM_ARRAY_TASK_ID + 1))p" plan.txt)
exec "$reelfx" render "Aged Film" clip.mp4 --frames "\$range" -o "chunk-\$SLURM_ARRAY_TASK_ID.mkv" -y -q
EOF
array=$(sbatch --parsable --array=0-3 chunk.sbatch)
timeout 300 sbatch --wait --parsable --dependency="afterok:$array" --kill-on-invalid-dep=yes \
    --output=join.log --job-name=reelfx-join \
    --wrap "\"$reelfx\" join chunk-0.mkv chunk-1.mkv chunk-2.mkv chunk-3.mkv -o farm.mkv --audio-from clip.mp4 -y" \
    > /dev/null || fail "the Slurm join job failed: $(cat join.log chunk-*.log 2> /dev/null)"
same_video whole.mkv farm.mkv "Aged Film on Slurm"
echo "Slurm: $(cat join.log)"
stop_slurm
echo "farm: all checks passed"
