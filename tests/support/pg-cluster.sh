#!/usr/bin/env bash
# A throwaway PostgreSQL cluster for the ODBC tests and benchmarks.
#
#   pg-cluster.sh start DIR        make a cluster in DIR and start it; a cluster already running
#                                  in DIR is reused, anything else found there is made anew
#   pg-cluster.sh stop DIR         stop the cluster and remove DIR (nothing there: nothing to do)
#   pg-cluster.sh status DIR       exit code 0 when the cluster in DIR runs and answers
#   pg-cluster.sh psql DIR ARGS... psql on database zeltest as user postgres (ARGS go to psql)
#
# start writes, besides the cluster itself (DIR/pg):
#   DIR/port            the TCP port; the server listens on 127.0.0.1 only, no password
#   DIR/connection.txt  the ODBC connection string for the PostgreSQL Unicode driver, one line
#                       without a line end
#   DIR/odbc.ini        a unixODBC DSN file (ODBCINI=DIR/odbc.ini): ZelPg on this cluster's
#                       database zeltest, ZelSqlite on the file ZEL_ODBC_SQLITE_DB names
#                       (DIR/odbc-sqlite.db by default)
#
# Exit codes: 0 done, 1 failed, 2 usage, 3 PostgreSQL is not installed here (no server
# binaries under /usr/lib/postgresql/VERSION/bin, or no postgres account to run them as root).
#
# PostgreSQL does not run as root. Run as root, the cluster belongs to the postgres account and
# every server program runs as that account; run as anyone else, it belongs to the caller. When
# the postgres account cannot reach DIR (a checkout under /root) or DIR's path is too long for
# a Unix socket, the cluster lives in a directory under /tmp and DIR/pg links to it.
set -euo pipefail

readonly DATABASE=zeltest
readonly SUPERUSER=postgres
readonly HOST=127.0.0.1

say() { printf 'pg-cluster: %s\n' "$*" >&2; }
die() { say "$*"; exit 1; }
unavailable() { say "PostgreSQL cannot be started here: $*"; exit 3; }

usage() {
  say "usage: pg-cluster.sh start|stop|status DIR, or pg-cluster.sh psql DIR [PSQL ARGS...]"
  exit 2
}

# The newest server version under /usr/lib/postgresql (ZEL_PG_BINDIR chooses another).
find_bindir() {
  local dir program
  if [ -n "${ZEL_PG_BINDIR:-}" ]; then
    dir="$ZEL_PG_BINDIR"
  else
    dir="$(find /usr/lib/postgresql -mindepth 2 -maxdepth 2 -name bin -type d 2>/dev/null |
           sort -t / -k 5 -V | tail -n 1)"
    [ -n "$dir" ] || unavailable "no server under /usr/lib/postgresql/VERSION/bin (package postgresql)"
  fi
  for program in initdb pg_ctl postgres pg_isready psql createdb; do
    [ -x "$dir/$program" ] || unavailable "$dir/$program is missing"
  done
  BIN="$dir"
}

# The account the server runs as, and how to run a program as it.
find_owner() {
  if [ "$(id -u)" -eq 0 ]; then
    id -u "$SUPERUSER" >/dev/null 2>&1 || unavailable "running as root, and there is no '$SUPERUSER' account to run the server as"
    command -v runuser >/dev/null || unavailable "running as root, and runuser (util-linux) is missing"
    OWNER="$SUPERUSER"
  else
    OWNER="$(id -un)"
  fi
}

as_owner() {
  # From / : the caller's working directory may be closed to the owner.
  if [ "$(id -u)" -eq 0 ]; then
    (cd / && runuser -u "$OWNER" -- "$@")
  else
    (cd / && "$@")
  fi
}

# The cluster's own directory (data/, server.log, the socket): DIR/pg or where that link points.
home_of() {
  readlink -f -- "$1/pg" 2>/dev/null || true
}

# A cluster directory of our own under /tmp (made when DIR/pg could not hold the cluster).
is_tmp_home() {
  case "$1" in
    /tmp/zel-pg.??????) return 0 ;;
    *) return 1 ;;
  esac
}

# The postmaster that DATA's lock file names is alive.
server_alive() { # data
  local pid
  pid="$(sed -n '1p' "$1/postmaster.pid" 2>/dev/null || true)"
  [ -n "$pid" ] && [ "$(basename "$(readlink "/proc/$pid/exe" 2>/dev/null || echo none)")" = postgres ]
}

# The port a running postmaster of DATA serves, from its lock file (4th line).
pid_file_port() {
  sed -n '4p' "$1/postmaster.pid" 2>/dev/null || true
}

is_running() { # DIR
  local home port
  home="$(home_of "$1")"
  [ -n "$home" ] && [ -f "$home/data/postmaster.pid" ] || return 1
  as_owner "$BIN/pg_ctl" status -D "$home/data" >/dev/null 2>&1 || return 1
  port="$(pid_file_port "$home/data")"
  [ -n "$port" ] || return 1
  "$BIN/pg_isready" -q -h "$HOST" -p "$port" -t 5
}

# A port is taken when any local TCP socket (IPv4 or IPv6, listening or connected) has it.
port_taken() {
  local hex
  hex="$(printf ':%04X ' "$1")"
  grep -q -- "$hex" /proc/net/tcp /proc/net/tcp6 2>/dev/null
}

# Candidates below Linux's ephemeral range (32768 and up), so that no outgoing connection
# holds them; the start point is random, so clusters started side by side rarely try the same.
next_port() {
  local port=$(( 20000 + (RANDOM % 12000) )) tries=0
  while port_taken "$port"; do
    port=$(( port + 1 ))
    [ "$port" -lt 32000 ] || port=20000
    tries=$(( tries + 1 ))
    [ "$tries" -lt 2000 ] || die "no free TCP port between 20000 and 31999"
  done
  echo "$port"
}

# Stops whatever server runs on DATA: fast shutdown, then immediate, then signals.
stop_server() { # data
  local data="$1" pid
  [ -f "$data/postmaster.pid" ] || return 0
  as_owner "$BIN/pg_ctl" stop -D "$data" -m fast -w -t 30 >/dev/null 2>&1 ||
    as_owner "$BIN/pg_ctl" stop -D "$data" -m immediate -w -t 30 >/dev/null 2>&1 || true
  if server_alive "$data"; then
    pid="$(sed -n '1p' "$data/postmaster.pid")"
    # pg_ctl gave up (or is gone); the postmaster's own signals: SIGQUIT is immediate shutdown.
    kill -QUIT "$pid" 2>/dev/null || true
    for _ in $(seq 1 100); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    if kill -0 "$pid" 2>/dev/null; then
      kill -KILL "$pid" 2>/dev/null || true
    fi
  fi
  return 0
}

# Removes a cluster found in DIR that does not run (a run was killed, a start broke off).
discard() { # DIR
  local dir="$1" home
  home="$(home_of "$dir")"
  if [ -n "$home" ]; then
    stop_server "$home/data"
    ! is_tmp_home "$home" || rm -rf -- "$home"
  fi
  rm -rf -- "$dir/pg" "$dir/port" "$dir/connection.txt" "$dir/odbc.ini"
}

# Where the cluster lives: DIR/pg when the owner can reach it and a socket path fits there
# (sun_path holds 107 bytes), else a fresh directory under /tmp that DIR/pg links to.
make_home() { # DIR
  local dir="$1" home
  home="$(readlink -f -- "$dir")/pg"
  mkdir -p "$home"
  [ "$(id -u)" -eq 0 ] && chown "$OWNER:" "$home"
  # 16: "/.s.PGSQL.65535".
  if [ $(( ${#home} + 16 )) -gt 107 ] || ! as_owner test -w "$home" -a -x "$home"; then
    rmdir "$home"
    home="$(mktemp -d /tmp/zel-pg.XXXXXX)"
    chmod 700 "$home"
    [ "$(id -u)" -eq 0 ] && chown "$OWNER:" "$home"
    as_owner test -w "$home" || die "the cluster's account $OWNER cannot write $home"
    ln -s "$home" "$dir/pg"
  fi
  echo "$home"
}

init_cluster() { # home
  local home="$1" locale=C locales
  # UTF-8 whatever the caller's locale; C.UTF-8 for character classes where the C library has it.
  locales="$(locale -a 2>/dev/null || true)"
  if grep -qix 'c\.utf-\?8' <<<"$locales"; then
    locale=C.UTF-8
  fi
  if ! as_owner "$BIN/initdb" -D "$home/data" -U "$SUPERUSER" -A trust -E UTF8 --locale="$locale" \
       --no-sync --no-instructions >"$home/initdb.log" 2>&1; then
    cat "$home/initdb.log" >&2
    die "initdb failed in $home/data"
  fi
  as_owner tee "$home/data/pg_hba.conf" >/dev/null <<'HBA'
# The tests' throwaway cluster: anyone on the socket or on loopback, without a password.
local all all trust
host  all all 127.0.0.1/32 trust
HBA
  as_owner tee -a "$home/data/postgresql.conf" >/dev/null <<'CONF'
# Port, addresses and socket of this run (pg-cluster.sh start writes it).
include_if_exists = 'zel-cluster.conf'
CONF
}

# Starts the server on a free port; a port taken between the check and the bind is passed over.
start_server() { # home
  local home="$1" port attempt log
  for attempt in 1 2 3 4 5 6 7 8; do
    port="$(next_port)"
    as_owner tee "$home/data/zel-cluster.conf" >/dev/null <<CONF
listen_addresses = '$HOST'
port = $port
unix_socket_directories = '$home'
# Containers often have a small /dev/shm.
dynamic_shared_memory_type = mmap
CONF
    if as_owner "$BIN/pg_ctl" start -D "$home/data" -l "$home/server.log" -w -t 60 >/dev/null 2>&1; then
      echo "$port"
      return 0
    fi
    log="$(tail -n 20 "$home/server.log" 2>/dev/null || true)"
    if grep -qi 'could not bind\|could not create any TCP/IP sockets\|address already in use' <<<"$log"; then
      say "port $port was taken; trying another"
      stop_server "$home/data"
      continue
    fi
    printf '%s\n' "$log" >&2
    stop_server "$home/data"
    die "the server did not start (log: $home/server.log)"
  done
  die "no port could be bound after $attempt tries"
}

wait_ready() { # port
  for _ in $(seq 1 60); do
    "$BIN/pg_isready" -q -h "$HOST" -p "$1" -t 2 && return 0
    sleep 0.5
  done
  die "the server on $HOST:$1 did not answer pg_isready within 30 s"
}

write_client_files() { # DIR port
  local dir="$1" port="$2" sqlite_db
  sqlite_db="${ZEL_ODBC_SQLITE_DB:-$(readlink -f -- "$dir")/odbc-sqlite.db}"
  printf '%s\n' "$port" >"$dir/port.new" && mv -f "$dir/port.new" "$dir/port"
  printf 'DRIVER={PostgreSQL Unicode};SERVER=%s;PORT=%s;DATABASE=%s;UID=%s;' \
    "$HOST" "$port" "$DATABASE" "$SUPERUSER" >"$dir/connection.txt"
  cat >"$dir/odbc.ini" <<INI
[ZelPg]
Description = The tests' throwaway PostgreSQL cluster ($dir)
Driver = PostgreSQL Unicode
Servername = $HOST
Port = $port
Database = $DATABASE
Username = $SUPERUSER

[ZelSqlite]
Description = SQLite file of the ODBC tests
Driver = SQLite3
Database = $sqlite_db
INI
  if command -v odbcinst >/dev/null; then
    local driver
    for driver in "PostgreSQL Unicode" "SQLite3"; do
      odbcinst -q -d -n "$driver" >/dev/null 2>&1 ||
        say "warning: unixODBC knows no driver \"$driver\" (odbcinst -q -d); its DSN will not connect"
    done
  fi
}

ensure_database() { # port
  local found
  found="$("$BIN/psql" -X -q -A -t -h "$HOST" -p "$1" -U "$SUPERUSER" -d postgres \
           -c "SELECT 1 FROM pg_database WHERE datname = '$DATABASE'")" ||
    die "cannot query the server on $HOST:$1"
  [ "$found" = 1 ] && return 0
  "$BIN/createdb" -h "$HOST" -p "$1" -U "$SUPERUSER" "$DATABASE" || die "createdb $DATABASE failed"
}

cmd_start() {
  local dir="$1" home port
  find_bindir
  find_owner
  mkdir -p -- "$dir"
  if is_running "$dir"; then
    port="$(pid_file_port "$(home_of "$dir")/data")"
    say "reusing the cluster running in $dir on $HOST:$port"
  else
    discard "$dir"
    home="$(make_home "$dir")"
    init_cluster "$home"
    port="$(start_server "$home")"
  fi
  wait_ready "$port"
  ensure_database "$port"
  write_client_files "$dir" "$port"
  say "running on $HOST:$port, database $DATABASE (DSN file $dir/odbc.ini)"
}

cmd_stop() {
  local dir="$1" home
  [ -e "$dir" ] || return 0
  home="$(home_of "$dir")"
  if [ -n "$home" ] && [ -f "$home/data/postmaster.pid" ]; then
    find_bindir
    find_owner
    stop_server "$home/data"
    ! server_alive "$home/data" || die "the server in $home/data did not stop"
  fi
  # A link to a cluster under /tmp: remove that too.
  [ -z "$home" ] || ! is_tmp_home "$home" || rm -rf -- "$home"
  rm -rf -- "$dir"
}

cmd_status() {
  find_bindir
  find_owner
  is_running "$1" || exit 1
}

cmd_psql() {
  local dir="$1" port
  shift
  find_bindir
  [ -f "$dir/port" ] || die "no cluster in $dir (run: pg-cluster.sh start $dir)"
  port="$(cat "$dir/port")"
  PGHOST="$HOST" PGPORT="$port" PGUSER="$SUPERUSER" PGDATABASE="$DATABASE" exec "$BIN/psql" -X "$@"
}

[ $# -ge 2 ] || usage
command="$1"
[ -n "$2" ] || usage
# Absolute, so that the DSN file and the messages hold paths that work from anywhere.
dir="$(readlink -m -- "$2")"
shift 2
case "$command" in
  start)  [ $# -eq 0 ] || usage; cmd_start "$dir" ;;
  stop)   [ $# -eq 0 ] || usage; cmd_stop "$dir" ;;
  status) [ $# -eq 0 ] || usage; cmd_status "$dir" ;;
  psql)   cmd_psql "$dir" "$@" ;;
  *) usage ;;
esac
