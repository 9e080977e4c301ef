#!/usr/bin/env bash
# Formats the C++ sources with the repository's .clang-format ("fix"), or fails listing the files
# that differ from it ("check").
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-check}
mapfile -t files < <(git ls-files -co --exclude-standard -- '*.h' '*.cpp' | while read -r f; do [ -f "$f" ] && echo "$f"; done)
[ ${#files[@]} -eq 0 ] && exit 0
if [ "$mode" = fix ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=()
for f in "${files[@]}"; do
  if ! clang-format --dry-run --Werror "$f" >/dev/null 2>&1; then bad+=("$f"); fi
done
if [ ${#bad[@]} -ne 0 ]; then
  echo "format-check: these files are not formatted (run 'make format'):" >&2
  printf '  %s\n' "${bad[@]}" >&2
  exit 1
fi
echo "format-check: ${#files[@]} files formatted"
