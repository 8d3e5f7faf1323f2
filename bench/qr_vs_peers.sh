#!/usr/bin/env bash
# Query and retrieve figures of `kestrel serve` against its peers, all on 127.0.0.1:
#   find  C-FIND at STUDY level (study root) over 10,000 studies of 2,000 patients, indexed by
#         kestrel serve (SQLite) and by Orthanc (SQLite), asked by the same findscu; queries
#         per second over one association (findscu --repeat)
#   move  C-MOVE of the 300-slice CT series (SERIES level, study root) from kestrel serve, from
#         dcmqrscp and from Orthanc to the same storescp, asked by movescu; and, as the
#         receiver's own pace, storescu sending the series straight to that storescp
# The servers are filled once, untimed: kestrel by `kestrel import` (the same store and index
# a received image gets), dcmqrscp and Orthanc by storescu. Each measurement runs once untimed
# per server, then RUNS times per server, interleaved; the median is reported. Every pass is
# checked: the number of matches of each query, and the 300 files storescp received.
# DCMTK's tools (findscu, movescu, storescu, storescp, dcmqrscp, and Orthanc, built on DCMTK)
# run with TCP_NODELAY=1 in their environment; kestrel always sets TCP_NODELAY.
#
# Usage: bench/qr_vs_peers.sh [--runs N] [--repeat Q] [--sets "find move"] [--data DIR]
#                             [--work DIR] [--kestrel PATH]
#   --runs N      timed passes per server and measurement (default 3)
#   --repeat Q    queries per findscu pass (default 200)
#   --sets LIST   what to measure (default both)
#   --data DIR    where the studies and the CT series are, or are made (default bench/out)
#   --work DIR    where the servers keep their data (default bench/out/qr; emptied first)
#   --kestrel P   the kestrel binary (default: build-bench/bin, build/bin, then build-*/bin)
# The table is printed at the end and also written to WORK/results.md.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(dirname "$here")"
runs=3
repeat=200
sets=(find move)
data="$here/out"
work="$here/out/qr"
kestrel=""
python=/usr/bin/python3

source "$here/lib.sh"
while [[ $# -gt 0 ]]; do
  case "$1" in
    --repeat) repeat="$2"; shift 2 ;;
    -h|--help) sed -n '2,24p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) shared_option "$@" || { echo "unknown option $1" >&2; exit 2; }; shift 2 ;;
  esac
done

die() { echo "qr_vs_peers: $*" >&2; exit 1; }
find_kestrel
for tool in findscu movescu storescu storescp dcmqrscp Orthanc; do
  command -v "$tool" >/dev/null || die "$tool missing (apt-get install dcmtk orthanc)"
done
rm -rf "$work"
mkdir -p "$work"
results="$work/results.md"
: > "$results"


pids=()
cleanup() { for p in "${pids[@]:-}"; do [[ -n "$p" ]] && kill "$p" 2>/dev/null || true; done; }
trap cleanup EXIT
export TCP_NODELAY=1

[[ -d "$data/in/studies" && -d "$data/in/ct" ]] ||
  "$python" "$here/make_data.py" generate "$data" --sets ct,studies >/dev/null
[[ "$(find "$data/in/studies" -type f | wc -l)" -eq 10000 ]] || die "$data/in/studies is not 10,000 studies"
series_uid=$("$python" -c "import pydicom,sys; print(pydicom.dcmread(sys.argv[1]).SeriesInstanceUID)" "$data/in/ct/ct00001.dcm")
study_uid=$("$python" -c "import pydicom,sys; print(pydicom.dcmread(sys.argv[1]).StudyInstanceUID)" "$data/in/ct/ct00001.dcm")

# The destination of every move.
dest_port=$(free_port)
mkdir -p "$work/dest"
storescp -aet DEST --fork -od "$work/dest" "$dest_port" > "$work/storescp.log" 2>&1 &
pids+=($!)
wait_port "$dest_port" || die "storescp did not start"

# kestrel serve: store and index filled by kestrel import, DEST in its Server table.
export KESTREL_HOME="$work/kestrel"
# The 10,000 studies are loaded only when the C-FIND figures are asked for.
studies=()
[[ " ${sets[*]} " == *" find "* ]] && studies=("$data/in/studies")
"$kestrel" import --quiet --store "$KESTREL_HOME/store" "${studies[@]}" "$data/in/ct" ||
  die "kestrel import failed"
"$kestrel" db server add DEST 127.0.0.1 "$dest_port" >/dev/null
"$kestrel" serve --port 0 --quiet --store "$KESTREL_HOME/store" > "$work/serve.out" 2>"$work/serve.err" &
pids+=($!)
for _ in $(seq 400); do
  kestrel_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$work/serve.out")
  [[ -n "$kestrel_port" ]] && break
  sleep 0.05
done
[[ -n "${kestrel_port:-}" ]] || die "kestrel serve did not start: $(cat "$work/serve.err")"

# Orthanc: its own configuration on free ports, DEST among its modalities, filled by storescu.
orthanc_port=$(free_port); http_port=$(free_port)
mkdir -p "$work/orthanc/db"
cat > "$work/orthanc/orthanc.json" <<EOF
{
  "Name": "bench", "StorageDirectory": "$work/orthanc/db", "IndexDirectory": "$work/orthanc/db",
  "DicomAet": "ORTHANC", "DicomPort": $orthanc_port, "DicomCheckCalledAet": false,
  "DicomAlwaysAllowStore": true, "DicomAlwaysAllowFind": true, "DicomAlwaysAllowMove": true,
  "DicomModalities": { "DEST": [ "DEST", "127.0.0.1", $dest_port ] },
  "StorageCompression": false, "Plugins": [], "LimitFindResults": 0, "LimitFindInstances": 0,
  "HttpPort": $http_port, "RemoteAccessAllowed": false, "AuthenticationEnabled": false
}
EOF
Orthanc "$work/orthanc/orthanc.json" > "$work/orthanc/orthanc.log" 2>&1 &
pids+=($!)
wait_port "$orthanc_port" || die "Orthanc did not start: $(tail -3 "$work/orthanc/orthanc.log")"

# dcmqrscp: a storage area filled by storescu, DEST in its host table.
qr_port=$(free_port)
mkdir -p "$work/dcmqrscp/area"
cat > "$work/dcmqrscp/dcmqrscp.cfg" <<EOF
NetworkTCPPort  = $qr_port
MaxPDUSize      = 16384
MaxAssociations = 16
HostTable BEGIN
dest = (DEST, 127.0.0.1, $dest_port)
HostTable END
VendorTable BEGIN
VendorTable END
AETable BEGIN
QRSCP $work/dcmqrscp/area RW (10, 1024mb) ANY
AETable END
EOF
dcmqrscp -c "$work/dcmqrscp/dcmqrscp.cfg" > "$work/dcmqrscp/dcmqrscp.log" 2>&1 &
pids+=($!)
wait_port "$qr_port" || die "dcmqrscp did not start: $(tail -3 "$work/dcmqrscp/dcmqrscp.log")"

storescu -aet BENCH -aec ORTHANC +sd "127.0.0.1" "$orthanc_port" "${studies[@]}" "$data/in/ct" \
  > /dev/null 2>"$work/orthanc/storescu.err" || die "storescu to Orthanc failed"
storescu -aet BENCH -aec QRSCP +sd "127.0.0.1" "$qr_port" "$data/in/ct" \
  > /dev/null 2>"$work/dcmqrscp/storescu.err" || die "storescu to dcmqrscp failed"

# The queries: a patient's studies by Patient ID (5 matches), and the studies of the patients
# whose names begin "SMITH^J" (100 matches), each asking for the usual study list columns
# (the matching key comes last: findscu keeps the last value given for a key).
return_keys=(-k StudyInstanceUID -k StudyDate -k StudyTime -k AccessionNumber -k StudyID
  -k StudyDescription -k ModalitiesInStudy -k PatientName -k PatientID -k PatientBirthDate
  -k PatientSex)
declare -A query_keys=([by-id]="PatientID=P000123" [by-name]="PatientName=SMITH^J*")
declare -A query_matches=([by-id]=5 [by-name]=100)
declare -A find_port=([kestrel]=$kestrel_port [orthanc]=$orthanc_port)
declare -A find_aec=([kestrel]=KESTREL [orthanc]=ORTHANC)

find_pass() {  # query server repeat; prints seconds
  local out="$work/find.$1.$2.out" t0 t1 answers
  t0=$(now)
  findscu -S -aet BENCH -aec "${find_aec[$2]}" --repeat "$3" -k QueryRetrieveLevel=STUDY \
    "${return_keys[@]}" -k "${query_keys[$1]}" -v 127.0.0.1 "${find_port[$2]}" > "$out" 2>&1 ||
    die "findscu to $2 failed: $(tail -3 "$out")"
  t1=$(now)
  answers=$(grep -c 'Find Response:.*(Pending)' "$out" || true)
  [[ "$answers" -eq $(( ${query_matches[$1]} * $3 )) ]] ||
    die "$2 gave $answers answers to $3 queries $1, not $(( ${query_matches[$1]} * $3 ))"
  echo "$t1 - $t0" | bc -l
}

run_find() {
  local query server kestrel_rate best rate
  for query in by-id by-name; do
    declare -A times=([kestrel]="" [orthanc]="")
    for server in kestrel orthanc; do find_pass "$query" "$server" 20 >/dev/null; done
    for _ in $(seq "$runs"); do
      for server in kestrel orthanc; do times[$server]+="$(find_pass "$query" "$server" "$repeat") "; done
    done
    row ""
    row "C-FIND STUDY level, study root, ${query_keys[$query]} (${query_matches[$query]} matches), $repeat queries on one association, median of $runs"
    row ""
    row "| server | seconds (each pass) | queries/s | kestrel/server |"
    row "|---|---|---|---|"
    kestrel_rate=$(echo "$repeat / $(printf '%s\n' ${times[kestrel]} | median)" | bc -l)
    for server in kestrel orthanc; do
      rate=$(echo "$repeat / $(printf '%s\n' ${times[$server]} | median)" | bc -l)
      row "$(printf '| %s | %s | %.0f | %.2f |' "$server" "${times[$server]% }" "$rate" \
        "$(echo "$kestrel_rate / $rate" | bc -l)")"
    done
  done
}

declare -A move_port=([kestrel]=$kestrel_port [dcmqrscp]=$qr_port [orthanc]=$orthanc_port)
declare -A move_aec=([kestrel]=KESTREL [dcmqrscp]=QRSCP [orthanc]=ORTHANC)

move_pass() {  # server; prints seconds
  local out="$work/move.$1.out" t0 t1 received
  find "$work/dest" -type f -delete
  sync
  t0=$(now)
  movescu -S -aet BENCH -aec "${move_aec[$1]}" -aem DEST -k QueryRetrieveLevel=SERIES \
    -k StudyInstanceUID="$study_uid" -k SeriesInstanceUID="$series_uid" 127.0.0.1 \
    "${move_port[$1]}" > "$out" 2>&1 || die "movescu to $1 failed: $(tail -3 "$out")"
  t1=$(now)
  # storescp has answered every C-STORE before the final C-MOVE response comes; its forked
  # children may still be closing the last file.
  for _ in $(seq 100); do
    received=$(find "$work/dest" -type f | wc -l)
    [[ "$received" -eq 300 ]] && break
    sleep 0.05
  done
  [[ "$received" -eq 300 ]] || die "$1 moved $received of 300 images"
  echo "$t1 - $t0" | bc -l
}

# The receiver's own pace: storescu sends the series straight to the same storescp.
store_pass() {
  local t0 t1 received
  find "$work/dest" -type f -delete
  sync
  t0=$(now)
  storescu -aet BENCH -aec DEST +sd -xe 127.0.0.1 "$dest_port" "$data/in/ct" > /dev/null 2>&1 ||
    die "storescu to storescp failed"
  t1=$(now)
  received=$(find "$work/dest" -type f | wc -l)
  [[ "$received" -eq 300 ]] || die "storescu stored $received of 300 images"
  echo "$t1 - $t0" | bc -l
}

run_move() {
  local server kestrel_seconds seconds bytes
  declare -A times=([kestrel]="" [dcmqrscp]="" [orthanc]="" [storescu]="")
  bytes=$(du -sb "$data/in/ct" | cut -f1)
  for server in kestrel dcmqrscp orthanc; do move_pass "$server" >/dev/null; done
  for _ in $(seq "$runs"); do
    for server in kestrel dcmqrscp orthanc; do times[$server]+="$(move_pass "$server") "; done
    times[storescu]+="$(store_pass) "
  done
  row ""
  row "C-MOVE of a 300-slice CT series ($((bytes / 1000000)) MB), SERIES level, study root, to storescp, median of $runs"
  row ""
  row "| server | seconds (each pass) | seconds | images/s | kestrel/server |"
  row "|---|---|---|---|---|"
  kestrel_seconds=$(printf '%s\n' ${times[kestrel]} | median)
  for server in kestrel dcmqrscp orthanc; do
    seconds=$(printf '%s\n' ${times[$server]} | median)
    row "$(printf '| %s | %s | %.2f | %.0f | %.2f |' "$server" "${times[$server]% }" "$seconds" \
      "$(echo "300 / $seconds" | bc -l)" "$(echo "$seconds / $kestrel_seconds" | bc -l)")"
  done
  seconds=$(printf '%s\n' ${times[storescu]} | median)
  row "$(printf '| (storescu straight to storescp, no move) | %s | %.2f | %.0f | %.2f |' \
    "${times[storescu]% }" "$seconds" "$(echo "300 / $seconds" | bc -l)" \
    "$(echo "$seconds / $kestrel_seconds" | bc -l)")"
}

row "kestrel: $kestrel; $(Orthanc --version 2>&1 | head -1); $(findscu --version 2>&1 | head -1)"
row "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
for set in "${sets[@]}"; do
  case "$set" in
    find) run_find ;;
    move) run_move ;;
    *) die "unknown set $set" ;;
  esac
done
row ""
row "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
