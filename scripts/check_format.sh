#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format makes of it with the repository's
# .clang-format. Exit 77 (a skip for ctest) when clang-format is not installed.
#   scripts/check_format.sh [SOURCE_DIR]     fix with: clang-format -i FILE...
set -uo pipefail
cd "${1:-$(dirname "$0")/..}" || exit 2
command -v clang-format >/dev/null || { echo "check_format: clang-format not installed"; exit 77; }
mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.inl' 2>/dev/null)
[ "${#files[@]}" -gt 0 ] || { echo "check_format: no sources found (not a git checkout?)"; exit 77; }
clang-format --dry-run --Werror "${files[@]}" 2>&1 | grep -E '^[^ ].*(warning|error):' |
  cut -d: -f1 | sort | uniq -c | sed 's/^/check_format: not formatted: /'
[ "${PIPESTATUS[0]}" -eq 0 ]
