#!/bin/sh
# Compares the renders of the build under test with the committed hashes.
# Usage: check.sh <render_digest> <renders.txt>
# After a change meant to alter pixels, regenerate with
#   build/native/render_digest --golden > tests/golden/renders.txt
set -eu
digest="$1"; golden="$2"
out="${TMPDIR:-/tmp}/golden_renders.$$"
trap 'rm -f "$out"' EXIT
"$digest" --golden > "$out"
if diff "$golden" "$out" > /dev/null; then
    echo "ok: $(wc -l < "$out") renders match $golden"
    exit 0
fi
echo "renders differ from $golden; changed renders per effect:" >&2
diff "$golden" "$out" | sed -n 's/^< \([^|]*\) |.*/\1/p' | sort | uniq -c >&2
echo "first differences (< expected, > this build):" >&2
diff "$golden" "$out" | head -20 >&2
exit 1
