#!/usr/bin/env bash
# The main job on a fresh machine: set up, build, create the embedded image database (SQLite
# in the Kestrel home), convert every sample DICOM file that pydicom ships into the Kestrel
# home, save and index the converted images in the image store, and dump one of them.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
home="${KESTREL_HOME:-$HOME/.local/share/kestrel}"
out="$home/converted"
mkdir -p "$out"
build/bin/kestrel db init
build/bin/kestrel db server list
samples=/usr/lib/python3/dist-packages/pydicom/data/test_files
done=0 failed=0
for f in "$samples"/*.dcm; do
  if build/bin/kestrel convert "$f" "$out/$(basename "$f")" 2>/dev/null; then
    done=$((done + 1))
  else
    failed=$((failed + 1))
  fi
done
echo "converted $done sample files into $out ($failed refused: damaged or unsupported syntax)"
# Saves the converted images into the image store and indexes them in the SQLite database. A
# file that is no image (an RT plan, a report) is set aside, which makes the exit code 3: that
# is expected here, any other failure is not.
status=0
build/bin/kestrel import "$out" 2>"$home/import.log" || status=$?
if [ "$status" -ne 0 ] && [ "$status" -ne 3 ]; then
  cat "$home/import.log" >&2
  exit "$status"
fi
tail -n 1 "$home/import.log"
# The first lines only; sed reads the whole dump, so the tool never writes into a closed pipe.
build/bin/kestrel dump "$out/CT_small.dcm" | sed -n 1,20p
