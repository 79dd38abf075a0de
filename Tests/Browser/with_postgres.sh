#!/usr/bin/env bash
# Runs a command while there is a PostgreSQL server of its own, whose address is in KITE_POSTGRES.
#
#   Tests/Browser/with_postgres.sh COMMAND…
set -euo pipefail

programs=/usr/lib/postgresql/15/bin
folder=$(mktemp -d "${TMPDIR:-/tmp}/kite-postgres-XXXXXX")
port=$(python3 -c 'import socket; probe = socket.socket(); probe.bind(("127.0.0.1", 0)); print(probe.getsockname()[1])')
as_server=(env)
if [[ $EUID == 0 ]]; then  # the server refuses to be root's
  as_server=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
  chown nobody:nogroup "$folder"
fi
trap '"${as_server[@]}" "$programs/pg_ctl" -D "$folder/data" -m immediate stop >/dev/null || true; rm -rf "$folder"' EXIT

"${as_server[@]}" "$programs/initdb" --no-sync --auth=trust --username=kite --encoding=UTF8 --locale=C.UTF-8 -D "$folder/data" >/dev/null
"${as_server[@]}" "$programs/pg_ctl" -D "$folder/data" -w -l "$folder/log" start \
  -o "-p $port -k $folder -c listen_addresses=127.0.0.1 -c fsync=off -c max_connections=300" >/dev/null
KITE_POSTGRES=postgresql://kite@127.0.0.1:$port "$@"
