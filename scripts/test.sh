#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: unit tests, the database tests on SQLite and
# PostgreSQL, and interoperability tests against DCMTK and pydicom's sample files.
#   scripts/test.sh           the suite on the release build
#   scripts/test.sh --asan    the suite built with AddressSanitizer and UBSan (build-asan/)
set -euo pipefail
cd "$(dirname "$0")/.."

build=build
options=()
if [ "${1:-}" = "--asan" ]; then
  build=build-asan
  options=(-DKESTREL_SANITIZE=ON -DKESTREL_BENCH=OFF)
fi
scripts/setup.sh "$build" "${options[@]}"
if [ "$build" = build ] && command -v clang++ >/dev/null; then
  # The fuzz targets must keep building; they are run by scripts/fuzz.sh, not here.
  scripts/fuzz.sh --build-only
fi
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# The database tests run on SQLite and on a private PostgreSQL cluster started here; without
# KESTREL_TEST_PG they would skip their PostgreSQL cases, so the cluster must start.
pg_env="$(scripts/pg.sh start)"
eval "$pg_env"
trap 'scripts/pg.sh stop "$KESTREL_PG_DIR"' EXIT
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" --timeout 600
