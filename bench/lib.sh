# Shared by the whole-program benchmark scripts, sourced before their options are read: the
# scripts set `root`, `kestrel`, `python` and their defaults first, and `die` before find_kestrel.

# The kestrel binary to time, when --kestrel gave none: a bench build, else the usual ones.
find_kestrel() {
  if [[ -z "$kestrel" ]]; then
    for candidate in "$root"/build-bench/bin/kestrel "$root"/build/bin/kestrel "$root"/build-*/bin/kestrel; do
      [[ -x "$candidate" ]] && { kestrel="$candidate"; break; }
    done
  fi
  [[ -n "$kestrel" && -x "$kestrel" ]] || die "no kestrel binary; build it (cmake --build build --target kestrel_cli) or pass --kestrel"
}

# Takes one of the options every script has (--runs, --sets, --data, --work, --kestrel) and
# its value, "$1" "$2"; false for any other option.
shared_option() {
  case "$1" in
    --runs) runs="$2" ;;
    --sets) read -r -a sets <<< "$2" ;;
    --data) data="$2" ;;
    --work) work="$2" ;;
    --kestrel) kestrel="$2" ;;
    *) return 1 ;;
  esac
}

now() { date +%s.%N; }
# The median of the numbers on standard input, one per line.
median() { sort -g | awk '{a[NR]=$1} END {print (NR%2 ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2)}'; }
free_port() { "$python" -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
# Waits up to 30 s for something to listen on 127.0.0.1:$1.
wait_port() {
  for _ in $(seq 600); do
    "$python" -c "import socket; socket.create_connection(('127.0.0.1',$1),timeout=1)" 2>/dev/null && return 0
    sleep 0.05
  done
  return 1
}
# Prints a line of the results and adds it to $results.
row() { echo "$1" | tee -a "$results"; }
