#!/bin/sh
# The 32-bit and 64-bit modules must render identical pixels: both digest
# programs render the same matrix of effects, formats, parameters and sizes
# and print one hash per render.
set -eu
a="$1"; b="$2"
"$a/render_digest" > "$a/render_digest.txt"
"$b/render_digest" > "$b/render_digest.txt"
if ! diff -u "$a/render_digest.txt" "$b/render_digest.txt" > /dev/null; then
    echo "renders differ between $a and $b:" >&2
    diff "$a/render_digest.txt" "$b/render_digest.txt" | head -40 >&2
    exit 1
fi
echo "ok: $(wc -l < "$a/render_digest.txt") renders identical in $a and $b"
