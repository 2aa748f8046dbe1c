#!/usr/bin/env bash
# Builds the library and the tolva command, then exports the shipped sample
# photograph to a GIF through the full opcode protocol.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTOLVA_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j "$(nproc)" --target tolva tolva_cli
mkdir -p out
build/release/tolva --actual-size samples/ladybird.jpg out/ladybird.gif
echo "Wrote $(pwd)/out/ladybird.gif"
