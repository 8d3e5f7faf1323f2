#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (build-fuzz/) and runs each for a while.
#   scripts/fuzz.sh [SECONDS_PER_TARGET]   build and run (default 60 s each)
#   scripts/fuzz.sh --build-only           only check that they build
set -euo pipefail
cd "$(dirname "$0")/.."
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKESTREL_FUZZ=ON -DKESTREL_TESTS=OFF -DKESTREL_BENCH=OFF -DKESTREL_SANITIZE=ON >/dev/null
cmake --build build-fuzz -j "$(nproc)" --target decode_fuzzer loadfile_fuzzer pdu_fuzzer
[ "${1:-}" = "--build-only" ] && exit 0
seconds="${1:-60}"
samples=/usr/lib/python3/dist-packages/pydicom/data/test_files
for target in decode_fuzzer loadfile_fuzzer pdu_fuzzer; do
  corpus="fuzz/corpus/$target"
  mkdir -p "$corpus"
  # The PDU reader starts from whole conversations (fuzz/make_pdu_seeds.py).
  if [ "$target" = pdu_fuzzer ] && [ -z "$(ls -A "$corpus")" ]; then
    /usr/bin/python3 fuzz/make_pdu_seeds.py "$corpus"
  fi
  # Start the corpus from real files (the decoder gets them without preamble, mode byte first).
  if [ "$target" != pdu_fuzzer ] && [ -d "$samples" ] && [ -z "$(ls -A "$corpus")" ]; then
    for f in "$samples"/*.dcm; do
      size=$(stat -c %s "$f")
      [ "$size" -lt 65536 ] || continue
      if [ "$target" = loadfile_fuzzer ]; then cp "$f" "$corpus/"; else
        { printf '\001'; tail -c +133 "$f"; } > "$corpus/$(basename "$f")"; fi
    done
  fi
  ASAN_OPTIONS=detect_leaks=1 build-fuzz/bin/$target "$corpus" -max_total_time="$seconds" \
    -max_len=65536 -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 2>&1 | tail -n 12
done
