# Shared by the whole-program benchmark scripts, sourced once `root`, `kestrel` and `die` are set.

# The kestrel binary to time, when --kestrel gave none: a bench build, else the usual ones.
find_kestrel() {
  if [[ -z "$kestrel" ]]; then
    for candidate in "$root"/build-bench/bin/kestrel "$root"/build/bin/kestrel "$root"/build-*/bin/kestrel; do
      [[ -x "$candidate" ]] && { kestrel="$candidate"; break; }
    done
  fi
  [[ -n "$kestrel" && -x "$kestrel" ]] || die "no kestrel binary; build it (cmake --build build --target kestrel_cli) or pass --kestrel"
}
