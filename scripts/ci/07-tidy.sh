#!/bin/sh
# clang-tidy (.clang-tidy: bugprone checks, nullptr, override, naming) on the
# module and the command-line tool, with the compile commands of the native
# build. Any finding fails the stage.
set -eu
cd "$(dirname "$0")/../.."
db=build/native
[ -f "$db/compile_commands.json" ] || { echo "no $db/compile_commands.json"; exit 1; }
files=$(ls plugin/*.cpp pixel/*.cpp effects/*.cpp resizer/*.cpp tools/*.cpp)
# GCC-only warning options in the compile commands are not clang's business.
echo "$files" | xargs -P "$(nproc 2>/dev/null || echo 2)" -n 4 \
    clang-tidy-14 -p "$db" --quiet --extra-arg=-Wno-unknown-warning-option
echo "clang-tidy: $(echo "$files" | wc -w) files clean"
