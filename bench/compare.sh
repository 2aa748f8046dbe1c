#!/usr/bin/env bash
# Times the tolva command against other programs that turn a true-colour
# photograph into a 256-colour GIF without dithering: ImageMagick (one thread,
# +dither -colors 256), libvips gifsave and Pillow's median cut. Each is run as
# a whole process, alternated with the others in one hyperfine run, on the
# shipped photograph and on a generated 4K picture; the table ends with each
# program's time as a multiple of tolva's.
#
#   bench/compare.sh [RUNS]      (default 10 runs of each command per picture)
#
# Installs what is missing from Debian's packages (hyperfine, imagemagick,
# libvips-tools, python3-pil) and builds build/release/tolva if needed.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-10}

missing=()
for p in hyperfine imagemagick libvips-tools python3-pil; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
if [ ! -x build/release/tolva ]; then
  scripts/deps.sh
  cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTOLVA_BUILD_TESTS=OFF >/dev/null
  cmake --build build/release -j "$(nproc)" --target tolva tolva_cli
fi

# Debian's own ImageMagick and Python (with Pillow), whatever else is first
# on the PATH.
magick=/usr/bin/convert-im6.q16
tolva=build/release/tolva
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Every program reads the same binary PPM, so that no decoder is timed.
"$magick" tests/data/photo.jpg "$work/1080p.ppm"
"$magick" tests/data/photo.jpg -resize 3840x2160! "$work/4k.ppm"

cat > "$work/pillow.py" <<'EOF'
import sys
from PIL import Image
Image.open(sys.argv[1]).quantize(256, method=Image.Quantize.MEDIANCUT,
                                 dither=Image.Dither.NONE).save(sys.argv[2])
EOF

# One hyperfine call per round, each command run once in it, so that the
# programs alternate and a burst of load elsewhere falls on all of them.
echo "| picture | tolva | ImageMagick | libvips | Pillow |"
echo "|---|---|---|---|---|"
for picture in 1080p 4k; do
  in="$work/$picture.ppm"
  for round in $(seq "$runs"); do
    hyperfine --runs 1 --warmup "$([ "$round" = 1 ] && echo 1 || echo 0)" --style none \
      --export-json "$work/$picture-$round.json" \
      -n tolva "$tolva --actual-size $in $work/t.gif" \
      -n imagemagick "env MAGICK_THREAD_LIMIT=1 $magick $in +dither -colors 256 $work/m.gif" \
      -n libvips "vips gifsave $in $work/v.gif --dither 0" \
      -n pillow "/usr/bin/python3 $work/pillow.py $in $work/p.gif" >/dev/null
  done
  python3 - "$picture" "$work"/"$picture"-*.json <<'EOF'
import json, statistics, sys
times = {}
for path in sys.argv[2:]:
    for r in json.load(open(path))["results"]:
        times.setdefault(r["command"], []).extend(r["times"])
median = {name: statistics.median(t) for name, t in times.items()}
base = median["tolva"]
cells = [f"{1000 * base:.0f} ms"]
for name in ("imagemagick", "libvips", "pillow"):
    cells.append(f"{1000 * median[name]:.0f} ms ({median[name] / base:.1f}x)")
print(f"| {sys.argv[1]} | " + " | ".join(cells) + " |")
EOF
done
echo
echo "Medians of $runs alternated runs each; $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p')."
