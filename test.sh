#!/usr/bin/env bash
# ./test.sh: installs what is missing, then everything that must hold before a change lands:
# formatting, scripts, the tests as released and under the sanitizers, static analysis.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

tools/install-dependencies test

step() { printf '\n== %s (%d s)\n' "$*" "$SECONDS"; }

step 'format'
git ls-files -- '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

step 'scripts'
git grep -lE '^#!.*sh' -- ':!*.md' | xargs shellcheck
git ls-files -- '*.py' | xargs pyflakes3
for script in $(git grep -lE '^#!.*python3' -- ':!*.md'); do pyflakes3 < "$script"; done
luacheck --quiet --config wireshark/.luacheckrc wireshark/zondar.lua

for preset in release asan; do
    step "build $preset"
    cmake --preset "$preset" > /dev/null
    cmake --build --preset "$preset" -- --quiet
done

# Most of what is slow in the tests only waits, so more of them run at once than there are cores, and
# what they leave of the cores goes to the static analysis.
nice tools/analyse app processor params queltdb protocol link transport master exporter &
analysis=$!
trap 'kill "$analysis" 2> /dev/null || true' EXIT

for preset in release asan; do
    step "tests $preset"
    ctest --test-dir "build/$preset" --no-tests=error --output-on-failure -j 8 |
        grep -vE '^ *Start |Passed +[0-9.]+ sec$'
done

step 'the whole board'
if board/emulation/make-images --current; then
    tests/board/run 'sets the clock' 'to the factory'
else
    left_out=', without the whole board, whose images are not there or older than the tree (board/emulation/make-images)'
fi

step 'static analysis'
wait "$analysis"

step "done${left_out-}"
