#!/usr/bin/env bash
# Formats the C and C++ sources with clang-format (.clang-format at the top,
# tools/ and examples/ add their own brace rule).
#
#   scripts/format.sh            formats every source in place and empties
#                                scripts/format-pending.txt
#   scripts/format.sh --check    changes nothing; fails, naming each file, when
#                                a source is not formatted
#
# scripts/format-pending.txt lists the sources written before the formatter
# was set up; --check passes over them until the tree is formatted once, so
# that every new or rewritten file is held to the format from the start.
set -euo pipefail
cd "$(dirname "$0")/.."
formatter=${CLANG_FORMAT:-clang-format}
pending=scripts/format-pending.txt
check=0
if [ "${1:-}" = "--check" ]; then check=1; fi

mapfile -t sources < <(git ls-files -co --exclude-standard -- src tests fuzz tools bench examples reference |
                       grep -E '\.(c|cc|cpp|h|hpp)$')

if [ "$check" -eq 0 ]; then
  for f in "${sources[@]}"; do [ -f "$f" ] && "$formatter" -i --style=file "$f"; done
  : > "$pending"
  exit 0
fi

declare -A skip=()
if [ -f "$pending" ]; then
  while IFS= read -r f; do [ -n "$f" ] && skip[$f]=1; done < "$pending"
fi
bad=0
for f in "${sources[@]}"; do
  [ -f "$f" ] || continue
  [ -n "${skip[$f]:-}" ] && continue
  if ! "$formatter" --style=file --dry-run -Werror "$f" > /dev/null 2>&1; then
    echo "not formatted: $f (scripts/format.sh formats it)"
    bad=1
  fi
done
exit "$bad"
