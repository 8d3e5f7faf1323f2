#!/usr/bin/env bash
# Throughput and peak memory of `kestrel convert` against DCMTK's dcmconv, on three data sets
# made by bench/make_data.py (explicit VR little endian in, implicit VR little endian out):
#   ct     a 300-slice 512x512 16-bit CT series
#   small  5,000 small CT images (64x64)
#   large  one 800-frame 512x512 16-bit Enhanced CT file (about 400 MB)
# Both tools convert one file per process. Each set gets one untimed warm-up pass per tool
# (warm page cache), then timed passes per tool, interleaved; the median is reported, as
# wall time (the figure the targets are about) and as CPU time of the tools' processes (less
# disturbed when other work shares the machine). Peak RSS is read from /usr/bin/time -v.
#
# Usage: bench/convert_vs_dcmconv.sh [--scale S] [--runs N] [--sets "ct small large"]
#                                    [--work DIR] [--kestrel PATH] [--regenerate] [--keep-output]
#   --scale S      multiplies the sizes of the three sets (default 1; 0.05 for a quick run)
#   --runs N       timed passes per tool on the ct and large sets (default 5)
#   --small-runs N timed passes per tool on the small set (default 1: each pass already runs
#                  5,000 processes per tool, and the set takes most of the time of a run)
#   --sets LIST    which sets to time (default all three; peak memory needs "large")
#   --work DIR     where data and outputs go (default bench/out, ignored by git)
#   --kestrel P    the kestrel binary (default: build-bench/bin, build/bin, then build-*/bin)
#   --regenerate   make the data again even if it exists for this scale
#   --keep-output  leave the converted files in DIR/conv (default: removed at the end)
# The summary table is printed at the end and also written to DIR/results.md.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(dirname "$here")"
scale=1
runs=5
small_runs=1
work="$here/out"
kestrel=""
regenerate=0
keep=0
sets=(ct small large)
python=/usr/bin/python3
kestrel_ts=1.2.840.10008.1.2

while [[ $# -gt 0 ]]; do
  case "$1" in
    --scale) scale="$2"; shift 2 ;;
    --runs) runs="$2"; shift 2 ;;
    --small-runs) small_runs="$2"; shift 2 ;;
    --sets) read -r -a sets <<< "$2"; shift 2 ;;
    --work) work="$2"; shift 2 ;;
    --kestrel) kestrel="$2"; shift 2 ;;
    --regenerate) regenerate=1; shift ;;
    --keep-output) keep=1; shift ;;
    -h|--help) awk 'NR > 1 && /^#/ {sub(/^# ?/, ""); print; next} NR > 1 {exit}' "$0"; exit 0 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done

die() { echo "convert_vs_dcmconv: $*" >&2; exit 1; }

source "$here/lib.sh"
find_kestrel
dcmconv="$(command -v dcmconv)" || die "dcmconv not found (apt-get install -y dcmtk)"
[[ -x /usr/bin/time ]] || die "/usr/bin/time not found (apt-get install -y time)"
"$python" -c 'import pydicom, numpy' 2>/dev/null || die "$python lacks pydicom or numpy"

mkdir -p "$work"
work="$(cd "$work" && pwd)"
results="$work/results.md"

# ---------------------------------------------------------------------------- the machine
echo "== machine"
echo "cpu:     $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //'), $(nproc) cores"
echo "memory:  $(awk '/MemTotal/ {printf "%.1f GiB", $2/1048576}' /proc/meminfo)"
echo "kernel:  $(uname -sr)"
echo "disk:    $(df -h "$work" | awk 'NR==2 {print $1", "$4" free"}')"
echo "kestrel: $kestrel ($("$kestrel" --version 2>&1 | head -1))"
kestrel_share="$(dirname "$(dirname "$(readlink -f "$kestrel")")")/share/kestrel"
if [[ -e "$kestrel_share/dicom.bin" || -e "$kestrel_share/dicom.dic" ]]; then
  echo "kestrel dictionary: $(ls "$kestrel_share"/dicom.* | tr '\n' ' ')(loaded by every conversion)"
else
  echo "kestrel dictionary: none beside the tool (conversions run without one)"
fi
echo "dcmconv: $dcmconv ($("$dcmconv" --version 2>&1 | head -1 | tr -d '$'))"
echo "load:    $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min) at start"

# ---------------------------------------------------------------------------- the data
stamp="$work/in/.scale"
if [[ $regenerate -eq 1 || ! -f "$stamp" || "$(cat "$stamp")" != "$scale" ]]; then
  echo "== generating data (scale $scale)"
  rm -rf "$work/in"
  t0=$EPOCHREALTIME
  "$python" "$here/make_data.py" generate "$work" --scale "$scale"
  echo "$scale" > "$stamp"
  echo "generation took $(awk -v a="$t0" -v b="$EPOCHREALTIME" 'BEGIN {printf "%.1f", b - a}') s"
else
  echo "== data for scale $scale already in $work/in"
fi

# ---------------------------------------------------------------------------- the runs
# convert_one TOOL IN OUT
convert_one() {
  case "$1" in
    kestrel) "$kestrel" convert --ts "$kestrel_ts" "$2" "$3" ;;
    dcmconv) "$dcmconv" +ti "$2" "$3" ;;
    true) /bin/true "$2" "$3" ;;
  esac
}

# pass TOOL SET: converts every file of the set, one process per file. Prints the wall seconds
# and the CPU seconds (user + system) of the processes it ran.
pass() {
  local tool="$1" set="$2" out="$work/conv/$2/$1" f t0 t1 c0
  rm -rf "$out"
  mkdir -p "$out"
  sync
  times > "$work/.times0"
  t0=$EPOCHREALTIME
  for f in "${files[@]}"; do
    convert_one "$tool" "$f" "$out/${f##*/}" || die "$tool failed on $f"
  done
  t1=$EPOCHREALTIME
  times > "$work/.times1"
  awk -v a="$t0" -v b="$t1" -v c0="$(cpu_of_times "$work/.times0")" -v c1="$(cpu_of_times "$work/.times1")" \
    'BEGIN {printf "%.3f %.3f", b - a, c1 - c0}'
}

# Seconds of user + system time of the children waited for, from the output of the `times`
# builtin (which must run in the shell that ran them, not in a command substitution).
cpu_of_times() {
  awk 'NR == 2 {
    n = split($0, t, " "); s = 0
    for (i = 1; i <= n; i++) { split(t[i], p, "m"); sub("s", "", p[2]); s += p[1] * 60 + p[2] }
    printf "%.3f", s }' "$1"
}

median() { printf '%s\n' "$@" | sort -g | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }
best() { local w walls=(); for w in "$@"; do walls+=("${w% *}"); done; printf '%s\n' "${walls[@]}" | sort -g | head -1; }
cpu_pressure() { awk '/^some/ {sub("avg10=", "", $2); print $2 "%"}' /proc/pressure/cpu 2>/dev/null || echo "n/a"; }

# record SET TOOL "WALL CPU"...: keeps the medians in seconds[SET,TOOL] and cpu[SET,TOOL].
declare -A seconds cpu mbps count bytes set_runs
record() {
  local set="$1" tool="$2"
  shift 2
  local walls=() cpus=() w c
  for w in "$@"; do walls+=("${w% *}"); cpus+=("${w#* }"); done
  seconds[$set,$tool]=$(median "${walls[@]}")
  cpu[$set,$tool]=$(median "${cpus[@]}")
  mbps[$set,$tool]=$(awk -v b="${bytes[$set]}" -v s="${seconds[$set,$tool]}" 'BEGIN {printf "%.1f", b / 1e6 / s}')
}

for set in "${sets[@]}"; do
  mapfile -t files < <(find "$work/in/$set" -name '*.dcm' | sort)
  [[ ${#files[@]} -gt 0 ]] || die "no input in $work/in/$set"
  count[$set]=${#files[@]}
  bytes[$set]=$(cat "${files[@]}" | wc -c)  # also brings every input into the page cache
  echo "== $set: ${count[$set]} files, $(awk -v b="${bytes[$set]}" 'BEGIN {printf "%.1f", b / 1e6}') MB" \
       "(load $(cut -d' ' -f1 /proc/loadavg), CPU pressure $(cpu_pressure))"
  pass kestrel "$set" > /dev/null
  pass dcmconv "$set" > /dev/null
  tk=() td=() tt=()
  n_runs=$runs
  [[ $set == small ]] && n_runs=$small_runs
  set_runs[$set]=$n_runs
  for ((r = 1; r <= n_runs; r++)); do
    tk+=("$(pass kestrel "$set")")
    td+=("$(pass dcmconv "$set")")
    echo "   run $r: kestrel ${tk[-1]% *} s (CPU ${tk[-1]#* } s), dcmconv ${td[-1]% *} s (CPU ${td[-1]#* } s)"
  done
  record "$set" kestrel "${tk[@]}"
  record "$set" dcmconv "${td[@]}"
  if [[ $n_runs -gt 1 ]]; then
    echo "   median: kestrel ${seconds[$set,kestrel]} s, dcmconv ${seconds[$set,dcmconv]} s;" \
         "best: kestrel $(best "${tk[@]}") s, dcmconv $(best "${td[@]}") s"
  fi
  if [[ $set == small ]]; then
    # The floor every one-process-per-file run pays: the same loop around /bin/true.
    for ((r = 1; r <= n_runs; r++)); do tt+=("$(pass true "$set")"); done
    record "$set" true "${tt[@]}"
    echo "   /bin/true in the same loop: ${seconds[$set,true]} s"
  fi
  # Both outputs must say the same thing as the input.
  checked=("${files[0]}")
  [[ ${#files[@]} -gt 2 ]] && checked+=("${files[${#files[@]} / 2]}" "${files[-1]}")
  for f in "${checked[@]}"; do
    "$python" "$here/make_data.py" check "$f" "$work/conv/$set/kestrel/${f##*/}" \
      "$work/conv/$set/dcmconv/${f##*/}" || die "outputs of $f differ from the input"
  done
  echo "   outputs checked (${#checked[@]} files): implicit VR little endian, same elements and pixels as the input"
done

# ---------------------------------------------------------------------------- peak memory
has_set() { [[ " ${sets[*]} " == *" $1 "* ]]; }
if has_set large; then
  echo "== peak memory on the large file"
  large="$work/in/large/multiframe.dcm"
  large_bytes=$(stat -c %s "$large")
  peak_kb() {  # peak_kb TOOL: maximum resident set of one conversion of the large file, in KiB
    local log="$work/conv/time-$1.log" out="$work/conv/rss/$1.dcm"
    mkdir -p "$work/conv/rss"
    rm -f "$out"
    case "$1" in
      kestrel) /usr/bin/time -v "$kestrel" convert --ts "$kestrel_ts" "$large" "$out" 2> "$log" ;;
      dcmconv) /usr/bin/time -v "$dcmconv" +ti "$large" "$out" 2> "$log" ;;
    esac || die "$1 failed under /usr/bin/time (see $log)"
    awk -F: '/Maximum resident set size/ {gsub(/ /, "", $2); print $2}' "$log"
  }
  rss_kestrel=$(peak_kb kestrel)
  rss_dcmconv=$(peak_kb dcmconv)
fi

# ---------------------------------------------------------------------------- the summary
calc() { awk "BEGIN {printf \"$1\", $2}"; }
verdict() { awk -v v="$1" -v t="$2" -v d="$3" 'BEGIN {ok = d == "min" ? v >= t : v <= t; print ok ? "met" : "MISSED"}'; }
{
  echo "Scale $scale; timed runs per tool: $(for s in "${sets[@]}"; do printf '%s %s, ' "$s" "${set_runs[$s]}"; done)median taken; $(date -u '+%Y-%m-%d %H:%M UTC')."
  echo "Load average at the end: $(cut -d' ' -f1-3 /proc/loadavg); CPU pressure (10 s): $(cpu_pressure)."
  echo
  echo "| set | files | MB in | kestrel wall s | kestrel MB/s | dcmconv wall s | dcmconv MB/s | ratio kestrel/dcmconv | target | | kestrel CPU s | dcmconv CPU s | CPU ratio dcmconv/kestrel |"
  echo "|---|---:|---:|---:|---:|---:|---:|---:|---:|---|---:|---:|---:|"
  for set in "${sets[@]}"; do
    r=$(calc "%.2f" "${mbps[$set,kestrel]} / ${mbps[$set,dcmconv]}")
    printf '| %s | %d | %.1f | %s | %s | %s | %s | %s | >= 1.5 | %s | %s | %s | %s |\n' "$set" "${count[$set]}" \
      "$(calc "%.1f" "${bytes[$set]} / 1e6")" "${seconds[$set,kestrel]}" "${mbps[$set,kestrel]}" \
      "${seconds[$set,dcmconv]}" "${mbps[$set,dcmconv]}" "$r" "$(verdict "$r" 1.5 min)" \
      "${cpu[$set,kestrel]}" "${cpu[$set,dcmconv]}" "$(calc "%.2f" "${cpu[$set,dcmconv]} / ${cpu[$set,kestrel]}")"
  done
  if has_set large; then
    echo
    echo "Peak resident memory converting the large file ($(calc "%.1f" "$large_bytes / 1e6") MB):"
    echo
    echo "| tool | peak RSS MB | peak RSS / file size | target | |"
    echo "|---|---:|---:|---:|---|"
    for tool in kestrel dcmconv; do
      if [[ $tool == kestrel ]]; then kb=$rss_kestrel; else kb=$rss_dcmconv; fi
      rr=$(calc "%.2f" "$kb * 1024 / $large_bytes")
      if [[ $tool == kestrel ]]; then target="<= 2.5"; v="$(verdict "$rr" 2.5 max)"; else target="-"; v=""; fi
      printf '| %s | %.1f | %s | %s | %s |\n' "$tool" "$(calc "%.1f" "$kb * 1024 / 1e6")" "$rr" "$target" "$v"
    done
    echo
    echo "Ratio of peak RSS dcmconv/kestrel: $(calc "%.2f" "$rss_dcmconv / $rss_kestrel")."
  fi
  if has_set small; then
    n=${count[small]}
    echo
    echo "One process per file: over the $n small files the same loop around /bin/true takes" \
         "${seconds[small,true]} s, $(calc "%.0f" "100 * ${seconds[small,true]} / ${seconds[small,kestrel]}")% of kestrel's wall time" \
         "and $(calc "%.0f" "100 * ${seconds[small,true]} / ${seconds[small,dcmconv]}")% of dcmconv's." \
         "Per file: kestrel $(calc "%.2f" "${seconds[small,kestrel]} / $n * 1000") ms," \
         "dcmconv $(calc "%.2f" "${seconds[small,dcmconv]} / $n * 1000") ms," \
         "/bin/true $(calc "%.2f" "${seconds[small,true]} / $n * 1000") ms."
  fi
} > "$results"
echo "== results"
cat "$results"
rm -f "$work/.times0" "$work/.times1"
[[ $keep -eq 1 ]] || rm -rf "$work/conv/ct" "$work/conv/small" "$work/conv/large" "$work/conv/rss"
