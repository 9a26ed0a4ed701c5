#!/bin/sh
# Every C++ file of the tree follows .clang-format (clang-format 14): the
# stage lists the files that do not and fails. `clang-format -i FILE` fixes one.
set -eu
cd "$(dirname "$0")/../.."
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    files=$(git ls-files '*.cpp' '*.h')
else
    files=$(find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print)
fi
bad=""
for f in $files; do
    clang-format-14 --dry-run --Werror "$f" >/dev/null 2>&1 || bad="$bad $f"
done
if [ -n "$bad" ]; then
    echo "not formatted (clang-format-14 -i FILE):"
    for f in $bad; do echo "  $f"; done
    exit 1
fi
echo "$(echo "$files" | wc -w) C++ files formatted"
