#!/bin/sh
# Runs the command given against a throwaway PostgreSQL cluster of its own on 127.0.0.1, whose
# address it finds in TAMLO_TEST_POSTGRES. initdb refuses to run as root, so a root run hands the
# cluster to the postgres account (or nobody). Exit code 77 (a skip) where PostgreSQL is missing.
set -eu
bin=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)
if [ ! -x "$bin/initdb" ]; then
    echo "SKIP: PostgreSQL is not installed (Debian: postgresql)"
    exit 77
fi
# Under /tmp whatever TMPDIR says: the account must reach it, and the socket path must stay short.
dir=$(mktemp -d /tmp/tamlo-pg-XXXXXX)
as=""
if [ "$(id -u)" -eq 0 ]; then
    account=$(id -u postgres >/dev/null 2>&1 && echo postgres || echo nobody)
    chown "$account" "$dir"
    as="runuser -u $account --"
fi
trap '$as "$bin/pg_ctl" -D "$dir/data" -m immediate -w stop >/dev/null 2>&1 || true; rm -rf "$dir"' EXIT
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
$as "$bin/initdb" -D "$dir/data" -U tamlo -A trust -E UTF8 --locale=C --no-sync >/dev/null
$as "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -o \
    "-p $port -k $dir -c listen_addresses=127.0.0.1 -c fsync=off -c full_page_writes=off" start >/dev/null
TAMLO_TEST_POSTGRES="postgresql://tamlo@127.0.0.1:$port/postgres" "$@"
