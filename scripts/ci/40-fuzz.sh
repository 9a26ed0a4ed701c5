#!/bin/sh
# Fuzzing: builds the fuzz preset (clang, libFuzzer, ASan + UBSan) and runs
# each target for a bounded time from the committed seeds: the exported entry
# as a hostile host, the companion scaling library on its own, and the tool's
# parameter parser. Any finding fails the stage. About 4 minutes on 2 cores.
set -eu
cd "$(dirname "$0")/../.."
scripts/fuzz.sh "${REELFX_FUZZ_SECONDS:-50}" render resizer params
