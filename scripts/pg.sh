#!/usr/bin/env bash
# A private PostgreSQL cluster for the database tests and benchmarks: made in a temporary
# directory, listening on a free loopback port only, and removed again when stopped. Nothing of
# the machine's own PostgreSQL set-up is touched.
#
#   eval "$(scripts/pg.sh start [--durable])"   prints the assignments below; start fails loudly
#   scripts/pg.sh stop "$KESTREL_PG_DIR"         stops the cluster and removes its directory
#
# Printed assignments:
#   KESTREL_PG_DIR    the cluster's directory (for stop)
#   KESTREL_TEST_PG   an ODBC connect string without a database: the tests add "Database=...;"
#                     and make one database per test (the role may create databases)
#
# Roles: "kestrel" (password "secret", checked: a wrong password is refused), and the two user
# names of the library's default connect strings, "admin" and "sa", which log in from loopback without a
# password as those strings carry none. The cluster runs with fsync off unless
# --durable is given: tests want speed, benchmarks want figures a site would see.
# PostgreSQL refuses to run as root; as root the cluster runs as the "postgres" user that the
# Debian package creates (or "nobody" when it is missing).
set -euo pipefail

find_bin() {
  local dir
  dir="$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)"
  if [ -z "$dir" ] || [ ! -x "$dir/initdb" ]; then
    echo "pg.sh: no PostgreSQL server installed (apt-get install postgresql)" >&2
    exit 1
  fi
  echo "$dir"
}

as_owner() {
  if [ "$(id -u)" -eq 0 ]; then
    runuser -u "$owner" -- "$@"
  else
    "$@"
  fi
}

port_is_free() {
  ! (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

start() {
  local durable=0
  [ "${1:-}" = "--durable" ] && durable=1
  local bin
  bin="$(find_bin)"
  owner="$(id -un)"
  if [ "$(id -u)" -eq 0 ]; then
    owner=postgres
    id postgres >/dev/null 2>&1 || owner=nobody
  fi
  local dir
  dir="$(mktemp -d "${TMPDIR:-/tmp}/kestrel-pg.XXXXXX")"
  chmod 755 "$dir"
  [ "$(id -u)" -eq 0 ] && chown "$owner" "$dir"
  as_owner "$bin/initdb" -D "$dir/data" -U postgres -A trust -E UTF8 --locale=C.UTF-8 \
    >"$dir/initdb.log" 2>&1 || { cat "$dir/initdb.log" >&2; exit 1; }
  as_owner tee "$dir/data/pg_hba.conf" >/dev/null <<'EOF'
local all postgres trust
host  all postgres,admin,sa 127.0.0.1/32 trust
host  all all 127.0.0.1/32 scram-sha-256
EOF
  local fsync=off
  [ "$durable" -eq 1 ] && fsync=on
  local port tries=0
  while :; do
    tries=$((tries + 1))
    port=$((20000 + RANDOM % 40000))
    port_is_free "$port" || continue
    if as_owner "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 start -o \
        "-p $port -k $dir -c listen_addresses=127.0.0.1 -c fsync=$fsync -c max_connections=60" \
        >/dev/null 2>&1; then
      break
    fi
    if [ "$tries" -ge 5 ]; then
      cat "$dir/server.log" >&2 || true
      echo "pg.sh: the server did not start" >&2
      exit 1
    fi
  done
  as_owner "$bin/psql" -q -h "$dir" -p "$port" -U postgres -d postgres -v ON_ERROR_STOP=1 <<'EOF' >&2
CREATE ROLE admin SUPERUSER LOGIN;
CREATE ROLE sa SUPERUSER LOGIN;
CREATE ROLE kestrel LOGIN CREATEDB PASSWORD 'secret';
EOF
  echo "KESTREL_PG_DIR='$dir'"
  echo "KESTREL_TEST_PG='DRIVER=PostgreSQL ANSI;Servername=127.0.0.1;Port=$port;UID=kestrel;PWD=secret;'"
  echo "export KESTREL_PG_DIR KESTREL_TEST_PG"
}

stop() {
  local dir="${1:?usage: pg.sh stop DIR}"
  [ -d "$dir/data" ] || { rm -rf "$dir"; return 0; }
  local bin
  bin="$(find_bin)"
  owner="$(stat -c %U "$dir/data")"
  as_owner "$bin/pg_ctl" -D "$dir/data" -m immediate -w stop >/dev/null 2>&1 || true
  rm -rf "$dir"
}

case "${1:-}" in
  start) shift; start "$@" ;;
  stop) shift; stop "$@" ;;
  *) echo "usage: pg.sh start [--durable] | pg.sh stop DIR" >&2; exit 64 ;;
esac
