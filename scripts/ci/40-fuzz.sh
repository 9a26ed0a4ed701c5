#!/bin/sh
# Fuzzing: builds the fuzz preset (clang, libFuzzer, ASan + UBSan), runs each
# target's reproducers, then the three targets side by side for a bounded time
# from the committed seeds: the exported entry as a hostile host, the
# companion scaling library on its own, and the tool's parameter parser. Any
# finding fails the stage.
set -eu
cd "$(dirname "$0")/../.."
FUZZ_PARALLEL=1 scripts/fuzz.sh "${REELFX_FUZZ_SECONDS:-50}" render resizer params
