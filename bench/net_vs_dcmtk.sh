#!/usr/bin/env bash
# Network figures of kestrel against DCMTK, all on 127.0.0.1:
#   echo   C-ECHO associations per second against one storescp: N runs of `kestrel echo` and N
#          runs of `echoscu` (one process and one association each), and `kestrel echo --repeat
#          N` (N associations in one process)
#   ct     C-STORE of the 300-slice 512x512 CT series: storescu -> kestrel serve and storescu ->
#          storescp, paired (interleaved) in one run, each receiver writing into its own folder
#   small  the same for 5,000 small CT images (64x64)
#   send-ct, send-small  the senders: `kestrel send --batch` and `storescu +sd -xe` of the CT
#          series or of the small images to storescp, paired (interleaved)
# DCMTK's tools are measured twice: as shipped, and with TCP_NODELAY=1 in their environment,
# which makes DCMTK set TCP_NODELAY (Debian's build leaves Nagle's algorithm on, so each PDU
# it writes in two parts waits for a delayed acknowledgement). The store sets run every pass
# with both; kestrel serve is then fed by the same storescu (as shipped, or with the variable).
#   path   the association's data path alone, no files: net_throughput (bench/net_throughput.cpp)
#          storing objects of 1, 16 and 64 MB from one thread to another
#   tcp    the loopback TCP bandwidth of this machine (1 MiB sends), for reference
# The series come from bench/make_data.py (explicit VR little endian); existing data under
# bench/out/in is used as it is. Each store set is timed RUNS times per receiver after one
# untimed warm-up each; the median is reported, as MB/s of file bytes and as files per second.
#
# Usage: bench/net_vs_dcmtk.sh [--runs N] [--echoes N] [--sets "echo ct small path tcp"]
#                              [--data DIR] [--work DIR] [--kestrel PATH]
#   --runs N       timed passes per receiver and store set (default 3)
#   --echoes N     associations per echo measurement (default 200)
#   --sets LIST    what to measure (default all seven)
#   --data DIR     where the series are, or are made (default bench/out; uses DIR/in/ct and
#                  DIR/in/small)
#   --work DIR     where received files go (default bench/out/net; emptied between passes)
#   --kestrel P    the kestrel binary (default: build-bench/bin, build/bin, then build-*/bin)
# The table is printed at the end and also written to WORK/results.md.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(dirname "$here")"
runs=3
echoes=200
sets=(echo ct small send-ct send-small path tcp)
data="$here/out"
work="$here/out/net"
kestrel=""
python=/usr/bin/python3

source "$here/lib.sh"
while [[ $# -gt 0 ]]; do
  case "$1" in
    --echoes) echoes="$2"; shift 2 ;;
    -h|--help) sed -n '2,27p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) shared_option "$@" || { echo "unknown option $1" >&2; exit 2; }; shift 2 ;;
  esac
done

die() { echo "net_vs_dcmtk: $*" >&2; exit 1; }
find_kestrel
for tool in storescp storescu echoscu; do command -v "$tool" >/dev/null || die "$tool missing"; done
mkdir -p "$work"
results="$work/results.md"
: > "$results"


pids=()
cleanup() { for p in "${pids[@]:-}"; do [[ -n "$p" ]] && kill "$p" 2>/dev/null || true; done; }
trap cleanup EXIT

start_storescp() {  # port dir
  storescp -od "$2" "$1" >/dev/null 2>&1 &
  scp_pid=$!
  pids+=("$scp_pid")
  wait_port "$1" || die "storescp did not start"
}

start_serve() {  # dir; sets serve_pid and serve_port
  local out="$work/serve.out"
  # The image database of each pass starts empty, beside the folder it indexes.
  rm -rf "$1.home"
  KESTREL_HOME="$1.home" "$kestrel" serve --port 0 --quiet --store "$1" > "$out" 2>"$work/serve.err" &
  serve_pid=$!
  pids+=("$serve_pid")
  for _ in $(seq 200); do
    serve_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$out")
    [[ -n "$serve_port" ]] && return 0
    sleep 0.05
  done
  die "kestrel serve did not start"
}

stop() { kill -TERM "$1" 2>/dev/null || true; wait "$1" 2>/dev/null || true; }

run_echo() {
  local port dir
  port=$(free_port)
  dir="$work/echo"
  mkdir -p "$dir"
  start_storescp "$port" "$dir"
  "$kestrel" echo 127.0.0.1 "$port"  # warm-up: page cache and the peer's first association
  echoscu 127.0.0.1 "$port"
  local t0 t1
  t0=$(now); for _ in $(seq "$echoes"); do "$kestrel" echo 127.0.0.1 "$port"; done; t1=$(now)
  local kestrel_rate; kestrel_rate=$(echo "$echoes / ($t1 - $t0)" | bc -l)
  t0=$(now); for _ in $(seq "$echoes"); do echoscu 127.0.0.1 "$port"; done; t1=$(now)
  local echoscu_rate; echoscu_rate=$(echo "$echoes / ($t1 - $t0)" | bc -l)
  t0=$(now); for _ in $(seq "$echoes"); do TCP_NODELAY=1 echoscu 127.0.0.1 "$port"; done; t1=$(now)
  local nodelay_rate; nodelay_rate=$(echo "$echoes / ($t1 - $t0)" | bc -l)
  t0=$(now); "$kestrel" echo --repeat "$echoes" 127.0.0.1 "$port"; t1=$(now)
  local repeat_rate; repeat_rate=$(echo "$echoes / ($t1 - $t0)" | bc -l)
  stop "$scp_pid"
  row ""
  row "C-ECHO against storescp, $echoes associations each"
  row ""
  row "| client | associations per second |"
  row "|---|---|"
  row "$(printf '| kestrel echo (one process each) | %.1f |' "$kestrel_rate")"
  row "$(printf '| echoscu (one process each) | %.1f |' "$echoscu_rate")"
  row "$(printf '| echoscu with TCP_NODELAY=1 (one process each) | %.1f |' "$nodelay_rate")"
  row "$(printf '| kestrel echo --repeat (one process) | %.1f |' "$repeat_rate")"
}

# One timed storescu pass of folder $1 into a receiver started by $2 ("kestrel" or "storescp"),
# with DCMTK's TCP_NODELAY variable set to $3 ("" for as shipped); prints the seconds.
store_pass() {
  local folder="$1" receiver="$2" nodelay="$3" dir="$work/received-$2" port t0 t1
  local env=(env); [[ -n "$nodelay" ]] && env=(env TCP_NODELAY="$nodelay")
  rm -rf "$dir"; mkdir -p "$dir"
  if [[ "$receiver" = kestrel ]]; then
    start_serve "$dir"; port=$serve_port
  else
    port=$(free_port)
    "${env[@]}" storescp -od "$dir" "$port" >/dev/null 2>&1 &
    scp_pid=$!; pids+=("$scp_pid")
    wait_port "$port" || die "storescp did not start"
  fi
  t0=$(now)
  "${env[@]}" storescu -aet BENCH +sd -xe 127.0.0.1 "$port" "$folder" >/dev/null \
    2>"$work/storescu.err" || die "storescu to $receiver failed: $(tail -3 "$work/storescu.err")"
  t1=$(now)
  if [[ "$receiver" = kestrel ]]; then stop "$serve_pid"; else stop "$scp_pid"; fi
  local count; count=$(find "$dir" -type f | wc -l)
  [[ "$count" -eq "$(find "$folder" -type f | wc -l)" ]] || die "$receiver stored $count files"
  echo "$t1 - $t0" | bc -l
}

run_store() {  # set name
  local name="$1" folder="$data/in/$1"
  if [[ ! -d "$folder" ]]; then
    "$python" "$here/make_data.py" generate "$data" >/dev/null
  fi
  local files bytes
  files=$(find "$folder" -type f | wc -l)
  bytes=$(du -sb "$folder" | cut -f1)
  local mode receiver
  declare -A times
  for mode in shipped nodelay; do
    for receiver in kestrel storescp; do
      store_pass "$folder" "$receiver" "$([[ $mode = nodelay ]] && echo 1)" >/dev/null  # warm-up
      times[$mode-$receiver]=""
    done
  done
  for _ in $(seq "$runs"); do
    for mode in shipped nodelay; do
      for receiver in kestrel storescp; do
        times[$mode-$receiver]+="$(store_pass "$folder" "$receiver" "$([[ $mode = nodelay ]] && echo 1)") "
      done
    done
  done
  row ""
  row "C-STORE of $name: $files files, $((bytes / 1000000)) MB, storescu +sd -xe, median of $runs"
  row ""
  row "| sender, receiver | seconds | MB/s | files/s |"
  row "|---|---|---|---|"
  local label seconds
  for mode in shipped nodelay; do
    for receiver in kestrel storescp; do
      seconds=$(printf '%s\n' ${times[$mode-$receiver]} | median)
      label="storescu -> $([[ $receiver = kestrel ]] && echo "kestrel serve" || echo storescp)"
      [[ $mode = nodelay ]] && label="$label, TCP_NODELAY=1"
      row "$(printf '| %s | %.2f | %.0f | %.0f |' "$label" "$seconds" \
        "$(echo "$bytes / $seconds / 1000000" | bc -l)" "$(echo "$files / $seconds" | bc -l)")"
    done
  done
}

# One timed pass of folder $1 sent by $2 ("kestrel" or "storescu") to a fresh storescp, with
# DCMTK's TCP_NODELAY variable set to $3 ("" for as shipped); prints the seconds.
send_pass() {
  local folder="$1" sender="$2" nodelay="$3" dir="$work/received-storescp" port t0 t1
  local env=(env); [[ -n "$nodelay" ]] && env=(env TCP_NODELAY="$nodelay")
  rm -rf "$dir"; mkdir -p "$dir"
  port=$(free_port)
  "${env[@]}" storescp -od "$dir" "$port" >/dev/null 2>&1 &
  scp_pid=$!; pids+=("$scp_pid")
  wait_port "$port" || die "storescp did not start"
  t0=$(now)
  if [[ "$sender" = kestrel ]]; then
    "$kestrel" send --batch --quiet 127.0.0.1 "$port" "$folder" 2>"$work/send.err" \
      || die "kestrel send failed: $(tail -3 "$work/send.err")"
  else
    "${env[@]}" storescu -aet BENCH +sd -xe 127.0.0.1 "$port" "$folder" >/dev/null \
      2>"$work/storescu.err" || die "storescu failed: $(tail -3 "$work/storescu.err")"
  fi
  t1=$(now)
  stop "$scp_pid"
  local count; count=$(find "$dir" -type f | wc -l)
  [[ "$count" -eq "$(find "$folder" -type f | wc -l)" ]] || die "storescp stored $count files from $sender"
  echo "$t1 - $t0" | bc -l
}

run_send() {  # set name
  local name="$1" folder files bytes mode sender label seconds
  folder="$data/in/$name"
  [[ -d "$folder" ]] || "$python" "$here/make_data.py" generate "$data" >/dev/null
  files=$(find "$folder" -type f | wc -l)
  bytes=$(du -sb "$folder" | cut -f1)
  declare -A times=()
  # One untimed pass, by the quickest pair, brings the files into the page cache for all.
  send_pass "$folder" kestrel 1 >/dev/null
  for _ in $(seq "$runs"); do
    for mode in shipped nodelay; do
      for sender in kestrel storescu; do
        times[$mode-$sender]+="$(send_pass "$folder" "$sender" "$([[ $mode = nodelay ]] && echo 1)") "
      done
    done
  done
  row ""
  row "Sending $name to storescp: $files files, $((bytes / 1000000)) MB, one association, median of $runs"
  row ""
  row "| sender, receiver | seconds | MB/s | files/s |"
  row "|---|---|---|---|"
  for mode in shipped nodelay; do
    for sender in kestrel storescu; do
      seconds=$(printf '%s\n' ${times[$mode-$sender]} | median)
      label="$([[ $sender = kestrel ]] && echo "kestrel send --batch" || echo "storescu +sd -xe") -> storescp"
      [[ $mode = nodelay ]] && label="$label, TCP_NODELAY=1"
      row "$(printf '| %s | %.2f | %.0f | %.0f |' "$label" "$seconds" \
        "$(echo "$bytes / $seconds / 1000000" | bc -l)" "$(echo "$files / $seconds" | bc -l)")"
    done
  done
}

run_path() {
  local tool
  tool="$(dirname "$kestrel")/net_throughput"
  [[ -x "$tool" ]] || die "no $tool (configure with -DKESTREL_BENCH=ON)"
  row ""
  row "The data path alone (StandardStorage::Write to StandardStorage::Read, no files):"
  row ""
  for shape in "1 300" "16 20" "64 8"; do
    row "- $("$tool" $shape)"
  done
}

run_tcp() {
  local rate
  rate=$("$python" - <<'EOF'
import socket, threading, time
total = 4 << 30
block = bytearray(1 << 20)
server = socket.socket(); server.bind(("127.0.0.1", 0)); server.listen(1)
def sink():
    conn, _ = server.accept()
    buf = bytearray(1 << 20); view = memoryview(buf); got = 0
    while got < total:
        n = conn.recv_into(view)
        if not n: break
        got += n
    conn.close()
t = threading.Thread(target=sink); t.start()
client = socket.create_connection(server.getsockname())
start = time.time(); sent = 0
while sent < total:
    client.sendall(block); sent += len(block)
client.close(); t.join()
print("%.0f" % (total / (time.time() - start) / 1e6))
EOF
)
  row ""
  row "Loopback TCP, 4 GiB in 1 MiB sends (Python sockets): $rate MB/s"
}

for set in "${sets[@]}"; do
  case "$set" in
    echo) run_echo ;;
    ct|small) run_store "$set" ;;
    send-ct|send-small) run_send "${set#send-}" ;;
    path) run_path ;;
    tcp) run_tcp ;;
    *) die "unknown set $set" ;;
  esac
done
echo
echo "written to $results"
