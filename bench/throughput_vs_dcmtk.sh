#!/usr/bin/env bash
# Throughput of kestrel against DCMTK, every pair in one run, interleaved, median of N:
#   send-ct, send-small, send-large
#          `kestrel send --batch` against `storescu +sd -xe` of the CT series, the small images
#          or the 419 MB multi-frame object, to `storescp --ignore`
#   serve-ct, serve-large
#          `storescu +sd -xe` into `kestrel serve` (storing and indexing; with its default
#          flushing, and with --no-sync) against `storescp -od`
#   convert-large
#          `kestrel convert --ts 1.2.840.10008.1.2` against `dcmconv +ti` of the large object
#   flush  the CT series written into a fresh folder with serve's flushes per image (file,
#          folder, a 24 KiB log append with fdatasync) and nothing else: what durability
#          alone costs on this disk, the floor of serve's flushed figure
# DCMTK runs with TCP_NODELAY=1 in the environment of every tool, its best case (Debian's build
# leaves Nagle's algorithm on otherwise); kestrel always sets TCP_NODELAY. Each pass of a pair
# starts fresh receivers on empty folders; the tools of a pair alternate, pass by pass. The
# table gives median seconds, MB/s of input bytes, the peak RSS of the tool measured (the
# sender, the receiver or the converter) and the ratio kestrel / DCMTK (below 1: faster). The
# load average is printed before and after, and the loopback TCP bandwidth for reference.
#
# Usage: bench/throughput_vs_dcmtk.sh [--runs N] [--sets "send-ct ..."] [--data DIR]
#                                     [--work DIR] [--kestrel PATH]
#   --runs N      timed passes per tool and pair, after one untimed pass each (default 3)
#   --sets LIST   pairs to run (default all six, tcp and flush)
#   --data DIR    where the data sets are, or are made by make_data.py (default bench/out)
#   --work DIR    where received and converted files go (default bench/out/throughput)
#   --kestrel P   the kestrel binary (default: build-bench/bin, then build/bin)
# The table is also written to WORK/results.md.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(dirname "$here")"
runs=3
sets=(send-ct send-small send-large serve-ct serve-large convert-large tcp flush)
data="$here/out"
work="$here/out/throughput"
kestrel=""
python=/usr/bin/python3
timer=/usr/bin/time

source "$here/lib.sh"
while [[ $# -gt 0 ]]; do
  case "$1" in
    -h|--help) sed -n '2,28p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) shared_option "$@" || { echo "unknown option $1" >&2; exit 2; }; shift 2 ;;
  esac
done

die() { echo "throughput_vs_dcmtk: $*" >&2; exit 1; }
find_kestrel
for tool in storescp storescu dcmconv "$timer"; do command -v "$tool" >/dev/null || die "$tool missing"; done
export TCP_NODELAY=1  # DCMTK's best case; kestrel ignores it
mkdir -p "$work"
results="$work/results.md"
: > "$results"

input_of() { case "$1" in *-ct) echo "$data/in/ct" ;; *-small) echo "$data/in/small" ;; *) echo "$data/in/large" ;; esac; }

pids=()
# Receivers run under /usr/bin/time: their own processes are ended, then time's.
cleanup() {
  for p in "${pids[@]:-}"; do
    [[ -n "$p" ]] || continue
    local child; child=$(pgrep -P "$p" || true)
    [[ -n "$child" ]] && kill "$child" 2>/dev/null || true
    kill "$p" 2>/dev/null || true
  done
}
trap cleanup EXIT
stop() { kill -TERM "$1" 2>/dev/null || true; wait "$1" 2>/dev/null || true; }
# Stops a receiver started under /usr/bin/time: the receiver itself, so that time reports it.
stop_timed() {
  local child; child=$(pgrep -P "$1" || true)
  [[ -n "$child" ]] && kill -TERM "$child" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# A receiver under /usr/bin/time, its peak RSS going to $work/rss; sets rx_pid and rx_port.
start_storescp() {  # folder, or "" for --ignore
  rx_port=$(free_port)
  local where=(--ignore); [[ -n "$1" ]] && where=(-od "$1")
  "$timer" -f %M -o "$work/rss" storescp "${where[@]}" "$rx_port" >/dev/null 2>&1 &
  rx_pid=$!; pids+=("$rx_pid")
  wait_port "$rx_port" || die "storescp did not start"
}
start_serve() {  # folder, extra options
  local out="$work/serve.out"
  rm -rf "$1.home" "$out"  # no port of an earlier pass may be read
  KESTREL_HOME="$1.home" "$timer" -f %M -o "$work/rss" "$kestrel" serve --port 0 --quiet \
    --store "$1" ${2:-} > "$out" 2>"$work/serve.err" &
  rx_pid=$!; pids+=("$rx_pid")
  for _ in $(seq 200); do
    rx_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$out" 2>/dev/null)
    [[ -n "$rx_port" ]] && return 0
    sleep 0.05
  done
  die "kestrel serve did not start"
}

# One pass of a pair's tool; prints "seconds peak-RSS-KB".
pass() {  # pair tool
  local pair="$1" tool="$2" in t0 t1 rss dir="$work/out"
  in=$(input_of "$pair")
  rm -rf "$dir" "$dir.home"; mkdir -p "$dir"
  sync
  case "$pair:$tool" in
    send-*:kestrel|send-*:storescu)
      start_storescp ""
      local cmd=("$kestrel" send --batch --quiet 127.0.0.1 "$rx_port" "$in")
      [[ $tool = storescu ]] && cmd=(storescu -aet BENCH +sd -xe 127.0.0.1 "$rx_port" "$in")
      t0=$(now)
      "$timer" -f %M -o "$work/rss.tx" "${cmd[@]}" >/dev/null 2>"$work/err" \
        || die "$tool failed: $(tail -3 "$work/err")"
      t1=$(now)
      stop_timed "$rx_pid"; rss=$(tail -1 "$work/rss.tx") ;;
    serve-*:*)
      case "$tool" in
        storescp) start_storescp "$dir" ;;
        kestrel) start_serve "$dir" ;;
        kestrel-nosync) start_serve "$dir" --no-sync ;;
      esac
      t0=$(now)
      storescu -aet BENCH +sd -xe 127.0.0.1 "$rx_port" "$in" >/dev/null 2>"$work/err" \
        || die "storescu to $tool failed: $(tail -3 "$work/err")"
      t1=$(now)
      stop_timed "$rx_pid"; rss=$(tail -1 "$work/rss")
      local count; count=$(find "$dir" -type f ! -path '*/.incoming/*' | wc -l)
      [[ "$count" -eq "$(find "$in" -type f | wc -l)" ]] || die "$tool stored $count files" ;;
    convert-*:*)
      local file; file=$(find "$in" -type f | head -1)
      local cmd=("$kestrel" convert --ts 1.2.840.10008.1.2 "$file" "$dir/out.dcm")
      [[ $tool = dcmconv ]] && cmd=(dcmconv +ti "$file" "$dir/out.dcm")
      t0=$(now)
      "$timer" -f %M -o "$work/rss.tx" "${cmd[@]}" >/dev/null 2>"$work/err" \
        || die "$tool failed: $(tail -3 "$work/err")"
      t1=$(now)
      rss=$(tail -1 "$work/rss.tx") ;;
    *) die "unknown pair $pair:$tool" ;;
  esac
  echo "$(echo "$t1 - $t0" | bc -l) $rss"
}

tools_of() {
  case "$1" in
    send-*) echo "kestrel storescu" ;;
    serve-*) echo "kestrel kestrel-nosync storescp" ;;
    convert-*) echo "kestrel dcmconv" ;;
  esac
}
label_of() {
  case "$1" in
    kestrel) [[ $2 = serve-* ]] && echo "kestrel serve" || { [[ $2 = send-* ]] && echo "kestrel send --batch" || echo "kestrel convert"; } ;;
    kestrel-nosync) echo "kestrel serve --no-sync" ;;
    storescu) echo "storescu +sd -xe" ;;
    storescp) echo "storescp -od" ;;
    dcmconv) echo "dcmconv +ti" ;;
  esac
}

run_pair() {
  local pair="$1" in files bytes tool
  in=$(input_of "$pair")
  [[ -d "$in" ]] || "$python" "$here/make_data.py" generate "$data" --sets "${pair#*-}" >/dev/null
  files=$(find "$in" -type f | wc -l)
  bytes=$(du -sb "$in" | cut -f1)
  declare -A times=() peaks=()
  for tool in $(tools_of "$pair"); do pass "$pair" "$tool" >/dev/null; done  # warm-up
  for _ in $(seq "$runs"); do
    for tool in $(tools_of "$pair"); do
      read -r seconds rss < <(pass "$pair" "$tool")
      times[$tool]+="$seconds "
      peaks[$tool]+="$rss "
    done
  done
  local peer seconds peer_seconds
  peer=$(tools_of "$pair" | awk '{print $NF}')
  peer_seconds=$(printf '%s\n' ${times[$peer]} | median)
  for tool in $(tools_of "$pair"); do
    seconds=$(printf '%s\n' ${times[$tool]} | median)
    row "$(printf '| %s | %s | %d | %.0f | %.3f | %.0f | %.1f | %s | %.2f |' "$pair" \
      "$(label_of "$tool" "$pair")" "$files" "$(echo "$bytes / 1000000" | bc -l)" "$seconds" \
      "$(echo "$bytes / $seconds / 1000000" | bc -l)" \
      "$(echo "$(printf '%s\n' ${peaks[$tool]} | sort -g | tail -1) / 1000" | bc -l)" \
      "$(echo ${times[$tool]})" "$(echo "$seconds / $peer_seconds" | bc -l)")"
  done
}

# What durability alone costs on this disk: the CT series' files written into a fresh folder
# with the flushes serve makes per image (the file, its folder, and a 24 KiB append to a log
# flushed with fdatasync, as SQLite's WAL commit is), median of the runs.
run_flush() {
  local in="$data/in/ct" dir="$work/flush" passes="" seconds
  [[ -d "$in" ]] || "$python" "$here/make_data.py" generate "$data" --sets ct >/dev/null
  for _ in $(seq "$runs"); do
    rm -rf "$dir"; mkdir -p "$dir"; sync
    passes+="$("$python" - "$in" "$dir" <<'EOF'
import os, sys, time
source, target = sys.argv[1], sys.argv[2]
names = sorted(os.listdir(source))
datas = [open(os.path.join(source, n), "rb").read() for n in names]
log = os.open(os.path.join(target, "log"), os.O_WRONLY | os.O_CREAT | os.O_APPEND)
folder = os.open(target, os.O_RDONLY)
page = bytes(24576)
start = time.time()
for name, data in zip(names, datas):
    fd = os.open(os.path.join(target, name), os.O_WRONLY | os.O_CREAT | os.O_EXCL)
    os.write(fd, data); os.fsync(fd); os.close(fd)
    os.fsync(folder)
    os.write(log, page); os.fdatasync(log)
print("%.3f" % (time.time() - start))
EOF
) "
  done
  seconds=$(printf '%s\n' $passes | median)
  rm -rf "$dir"
  row ""
  row "Flushes alone (the CT series written with a file, folder and log flush per image): $seconds s; passes $(echo $passes)"
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
    view = memoryview(bytearray(1 << 20)); got = 0
    while got < total:
        n = conn.recv_into(view)
        if not n: break
        got += n
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

row "kestrel: $kestrel; $runs timed passes per tool; $(date -u '+%Y-%m-%d %H:%M UTC')"
row "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
row ""
row "| pair | tool | files | MB | median s | MB/s | peak RSS MB | passes s | ratio to DCMTK |"
row "|---|---|---:|---:|---:|---:|---:|---|---:|"
for set in "${sets[@]}"; do
  case "$set" in
    tcp) run_tcp ;;
    flush) run_flush ;;
    send-*|serve-*|convert-*) run_pair "$set" ;;
    *) die "unknown set $set" ;;
  esac
done
row ""
row "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "written to $results"
