#!/usr/bin/env bash
# Storing and indexing figures of kestrel against Orthanc, all on 127.0.0.1:
#   ct     storescu (one association) of the 300-slice 512x512 CT series into `kestrel serve`
#          (SQLite index in its home) and into Orthanc (SQLite index), paired (interleaved)
#   small  the same for 5,000 small CT images (64x64)
#   import-ct, import-small  `kestrel import` of the same folders into an empty store and index
# Both servers keep their files and their index on the file system of --work. DCMTK's tools
# (storescu, and Orthanc, which is built on DCMTK) run with TCP_NODELAY=1 in their environment;
# kestrel always sets TCP_NODELAY. Orthanc is the Debian package `orthanc`, installed by this
# script when it is missing, and started with a configuration of its own on free ports (no
# plugins, no compression, any calling AE). Every pass stores into new, empty directories; they
# are all removed at the end, not between passes, so that no pass pays for the file system
# recycling the inodes of the one before. Each store set is timed RUNS times per receiver after
# one untimed warm-up each; the median is reported as images per second, and each pass is
# checked: every image stored and indexed exactly once.
#
# Usage: bench/store_vs_orthanc.sh [--runs N] [--sets "ct small import-ct import-small"]
#                                  [--data DIR] [--work DIR] [--kestrel PATH]
#   --runs N       timed passes per receiver and set (default 3)
#   --sets LIST    what to measure (default all four)
#   --data DIR     where the series are, or are made (default bench/out; uses DIR/in/ct and
#                  DIR/in/small)
#   --work DIR     where the servers store (default bench/out/store)
#   --kestrel P    the kestrel binary (default: build-bench/bin, build/bin, then build-*/bin)
# The table is printed at the end and also written to WORK/results.md.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(dirname "$here")"
runs=3
sets=(ct small import-ct import-small)
data="$here/out"
work="$here/out/store"
kestrel=""
python=/usr/bin/python3

source "$here/lib.sh"
while [[ $# -gt 0 ]]; do
  case "$1" in
    -h|--help) sed -n '2,27p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) shared_option "$@" || { echo "unknown option $1" >&2; exit 2; }; shift 2 ;;
  esac
done

die() { echo "store_vs_orthanc: $*" >&2; exit 1; }
find_kestrel
command -v storescu >/dev/null || die "storescu missing (apt-get install dcmtk)"
command -v sqlite3 >/dev/null || die "sqlite3 missing (apt-get install sqlite3)"
if ! command -v Orthanc >/dev/null; then
  echo "store_vs_orthanc: installing Debian's orthanc package" >&2
  sudo=""; [[ "$(id -u)" -eq 0 ]] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends orthanc >/dev/null
fi
mkdir -p "$work"
results="$work/results.md"
: > "$results"
passes="$work/passes.$$"
mkdir -p "$passes"


pids=()
cleanup() {
  for p in "${pids[@]:-}"; do [[ -n "$p" ]] && kill "$p" 2>/dev/null || true; done
  rm -rf "$passes"
}
trap cleanup EXIT
stop() { kill -TERM "$1" 2>/dev/null || true; wait "$1" 2>/dev/null || true; }
pass_dir() { mktemp -d "$passes/$1.XXXXXX"; }

start_kestrel() {  # dir; sets server_pid and server_port
  KESTREL_HOME="$1" "$kestrel" serve --port 0 --quiet --store "$1/store" > "$1/serve.out" \
    2>"$1/serve.err" &
  server_pid=$!; pids+=("$server_pid")
  for _ in $(seq 400); do
    server_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$1/serve.out")
    [[ -n "$server_port" ]] && return 0
    sleep 0.05
  done
  die "kestrel serve did not start: $(cat "$1/serve.err")"
}

start_orthanc() {  # dir; sets server_pid, server_port and http_port
  server_port=$(free_port); http_port=$(free_port)
  mkdir -p "$1/db"
  cat > "$1/orthanc.json" <<EOF
{
  "Name": "bench", "StorageDirectory": "$1/db", "IndexDirectory": "$1/db",
  "DicomAet": "ORTHANC", "DicomPort": $server_port, "DicomCheckCalledAet": false,
  "DicomAlwaysAllowStore": true, "StorageCompression": false, "Plugins": [],
  "HttpPort": $http_port, "RemoteAccessAllowed": false, "AuthenticationEnabled": false
}
EOF
  TCP_NODELAY=1 Orthanc "$1/orthanc.json" > "$1/orthanc.log" 2>&1 &
  server_pid=$!; pids+=("$server_pid")
  wait_port "$server_port" && wait_port "$http_port" || die "Orthanc did not start: $(tail -3 "$1/orthanc.log")"
}

# Images each server has indexed, from its own database.
kestrel_count() { sqlite3 "$1/index.db" "SELECT COUNT(*) FROM Image"; }
orthanc_count() {
  "$python" -c "import json,urllib.request; print(json.load(urllib.request.urlopen('http://127.0.0.1:$1/statistics'))['CountInstances'])"
}

# One timed storescu pass of folder $1 into a fresh $2 ("kestrel" or "orthanc"); prints seconds.
store_pass() {
  local folder="$1" receiver="$2" dir port t0 t1 files count stored
  dir=$(pass_dir "$receiver")
  files=$(find "$folder" -type f | wc -l)
  if [[ "$receiver" = kestrel ]]; then start_kestrel "$dir"; else start_orthanc "$dir"; fi
  port=$server_port
  sync
  t0=$(now)
  TCP_NODELAY=1 storescu -aet BENCH -aec "${receiver^^}" +sd -xe 127.0.0.1 "$port" "$folder" \
    >/dev/null 2>"$dir/storescu.err" || die "storescu to $receiver failed: $(tail -3 "$dir/storescu.err")"
  t1=$(now)
  if [[ "$receiver" = kestrel ]]; then
    stop "$server_pid"
    count=$(kestrel_count "$dir")
    stored=$(find "$dir/store" -type f -name '*.dcm' | wc -l)
  else
    count=$(orthanc_count "$http_port")
    stop "$server_pid"
    stored=$count
  fi
  [[ "$count" -eq "$files" && "$stored" -eq "$files" ]] ||
    die "$receiver indexed $count and stored $stored of $files images"
  echo "$t1 - $t0" | bc -l
}

# One timed `kestrel import` of folder $1 into a fresh home; prints seconds.
import_pass() {
  local folder="$1" dir t0 t1 files count
  dir=$(pass_dir import)
  files=$(find "$folder" -type f | wc -l)
  sync
  t0=$(now)
  KESTREL_HOME="$dir" "$kestrel" import --quiet --store "$dir/store" "$folder" 2>"$dir/import.err" ||
    die "kestrel import failed: $(tail -3 "$dir/import.err")"
  t1=$(now)
  count=$(kestrel_count "$dir")
  [[ "$count" -eq "$files" ]] || die "kestrel import indexed $count of $files images"
  echo "$t1 - $t0" | bc -l
}

ensure_data() {
  [[ -d "$data/in/ct" && -d "$data/in/small" ]] ||
    "$python" "$here/make_data.py" generate "$data" --sets ct,small >/dev/null
}

run_store() {  # set name
  local name="$1" folder="$data/in/$1" files bytes receiver seconds kestrel_rate
  ensure_data
  files=$(find "$folder" -type f | wc -l)
  bytes=$(du -sb "$folder" | cut -f1)
  declare -A times=([kestrel]="" [orthanc]="")
  for receiver in kestrel orthanc; do store_pass "$folder" "$receiver" >/dev/null; done  # warm-up
  for _ in $(seq "$runs"); do
    for receiver in kestrel orthanc; do times[$receiver]+="$(store_pass "$folder" "$receiver") "; done
  done
  row ""
  row "Storing and indexing $name: $files images, $((bytes / 1000000)) MB, storescu +sd -xe, median of $runs"
  row ""
  row "| receiver | seconds (each pass) | seconds | images/s | kestrel/Orthanc |"
  row "|---|---|---|---|---|"
  seconds=$(printf '%s\n' ${times[kestrel]} | median)
  kestrel_rate=$(echo "$files / $seconds" | bc -l)
  row "$(printf '| kestrel serve | %s | %.2f | %.0f | |' "${times[kestrel]% }" "$seconds" "$kestrel_rate")"
  seconds=$(printf '%s\n' ${times[orthanc]} | median)
  row "$(printf '| Orthanc | %s | %.2f | %.0f | %.2f |' "${times[orthanc]% }" "$seconds" \
    "$(echo "$files / $seconds" | bc -l)" "$(echo "$kestrel_rate * $seconds / $files" | bc -l)")"
}

run_import() {  # set name
  local name="$1" folder="$data/in/$1" files times="" seconds
  ensure_data
  files=$(find "$folder" -type f | wc -l)
  import_pass "$folder" >/dev/null  # warm-up
  for _ in $(seq "$runs"); do times+="$(import_pass "$folder") "; done
  seconds=$(printf '%s\n' $times | median)
  row ""
  row "kestrel import of $name: $files images, median of $runs"
  row ""
  row "| command | seconds (each pass) | seconds | images/s |"
  row "|---|---|---|---|"
  row "$(printf '| kestrel import | %s | %.2f | %.0f |' "${times% }" "$seconds" "$(echo "$files / $seconds" | bc -l)")"
}

row "kestrel: $kestrel; $(Orthanc --version 2>&1 | head -1); $(storescu --version 2>&1 | head -1)"
row "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
for set in "${sets[@]}"; do
  case "$set" in
    ct|small) run_store "$set" ;;
    import-ct) run_import ct ;;
    import-small) run_import small ;;
    *) die "unknown set $set" ;;
  esac
done
row ""
row "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
