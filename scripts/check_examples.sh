#!/usr/bin/env bash
# Installs the build into a fresh prefix (not /usr/local), builds the examples of docs/guide.md
# against it with CMake (find_package) and with pkg-config, and runs them: a new image, a file
# changed and rewritten, both sent to DCMTK's storescp after a C-ECHO, and the studies listed
# from a fresh embedded database.
#   scripts/check_examples.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
work="$(mktemp -d)"
scp_pid=""
cleanup() {
  [ -n "$scp_pid" ] && kill "$scp_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
examples=(read_and_change new_image verify_and_send list_studies)

echo "examples: CMake, find_package(Kestrel) from $prefix"
cmake -S examples -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" -j 2 >/dev/null

echo "examples: pkg-config"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
mkdir "$work/pc"
for example in "${examples[@]}"; do
  # shellcheck disable=SC2046
  c++ -std=c++17 "examples/$example.cpp" -o "$work/pc/$example" $(pkg-config --cflags --libs kestrel) \
    -Wl,-rpath,"$(pkg-config --variable=libdir kestrel)"
done

export KESTREL_HOME="$work/home"
samples=/usr/lib/python3/dist-packages/pydicom/data/test_files
dcmconv +ti "$samples/CT_small.dcm" "$work/ct_implicit.dcm"

# Each example once from each build: CMake's for the first half, pkg-config's for the rest.
"$work/cmake/new_image" "$work/new.dcm"
"$work/pc/read_and_change" "$work/ct_implicit.dcm" "$work/changed.dcm" "DOE^JOHN" "ID-7"
changed="$(dcmdump "$work/changed.dcm" | tr -d '\000')"
grep -F '[DOE^JOHN]' <<<"$changed" >/dev/null
if grep -E '^\([0-9a-f]{3}[02468ace],' <<<"$changed" | grep ' UN ' >/dev/null; then
  echo "examples: read_and_change wrote standard attributes as UN" >&2
  exit 1
fi

port="$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')"
mkdir "$work/inbox"
storescp -od "$work/inbox" -aet ANY-SCP "$port" >/dev/null 2>&1 &
scp_pid=$!
for _ in $(seq 50); do (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break; sleep 0.1; done
"$work/cmake/verify_and_send" 127.0.0.1 "$port" ANY-SCP "$work/new.dcm" "$work/changed.dcm"
received=$(find "$work/inbox" -type f | wc -l)
[ "$received" -eq 2 ] || { echo "examples: storescp received $received files, not 2" >&2; exit 1; }

"$prefix/bin/kestrel" db init >/dev/null
listed="$("$work/pc/list_studies")"
grep -x '0 studies' <<<"$listed" >/dev/null
echo "examples: built both ways and ran"
