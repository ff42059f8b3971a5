#!/bin/sh
# Runs a command against a PostgreSQL of its own: postgres.sh COMMAND ARGUMENT...
# The cluster is made in a temporary directory, listens on nothing but a socket in it, belongs to
# nobody when root calls (initdb refuses root), and is gone afterwards. The command finds it by
# PGHOST. Exit code 77: there is no PostgreSQL here.
set -eu

binaries=$(dirname "$(ls /usr/lib/postgresql/*/bin/initdb 2>/dev/null | tail -1)" 2>/dev/null)
[ -x "$binaries/initdb" ] || exit 77

work=$(mktemp -d)
chmod 755 "$work"
as_user=""
if [ "$(id -u)" -eq 0 ]; then
    as_user="setpriv --reuid=nobody --regid=nogroup --clear-groups"
    chown nobody:nogroup "$work"
fi
server=""
finish() {
    [ -z "$server" ] || { kill -INT "$server" && wait "$server"; } || true
    rm -rf "$work"
}
trap finish EXIT

cd "$work"
# The words of the prefix are meant to be split.
# shellcheck disable=SC2086
$as_user "$binaries/initdb" -D "$work/data" -U velmora -A trust -N -E UTF8 --locale=C.UTF-8 \
    >"$work/initdb.log" 2>&1 || { cat "$work/initdb.log" >&2; exit 1; }
# shellcheck disable=SC2086
$as_user "$binaries/postgres" -D "$work/data" -k "$work" -c listen_addresses= -c fsync=off \
    >"$work/server.log" 2>&1 &
server=$!
cd - >/dev/null

export PGHOST="$work" PGUSER=velmora PGDATABASE=postgres
tries=0
until "$binaries/pg_isready" -q; do
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] && kill -0 "$server" || { cat "$work/server.log" >&2; exit 1; }
    sleep 0.1
done
"$@"
