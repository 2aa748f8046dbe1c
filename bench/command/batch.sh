#!/usr/bin/env bash
# Times a batch of 100 photographs with one conversion at a time and with
# two, with hyperfine: `tolva INPUT... -O DIR --jobs N`. Each conversion is a
# process of its own, so two jobs on two cores should take well under the
# time of one (0.6 of it at most). Run from the repository root after
# building build/release (scripts/demo.sh does); hyperfine comes from
# Debian's package of that name.
set -euo pipefail
command=${1:-build/release/tolva}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/photos" "$work/gifs"
for i in $(seq -w 1 100); do
  cp tests/data/photo.jpg "$work/photos/p$i.jpg"
done
inputs=$(echo "$work"/photos/*.jpg)
hyperfine --warmup 1 --runs "${RUNS:-5}" -N \
  --command-name "jobs 1" "$command -q -O $work/gifs --jobs 1 $inputs" \
  --command-name "jobs 2" "$command -q -O $work/gifs --jobs 2 $inputs"
