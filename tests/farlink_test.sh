#!/usr/bin/env bash
# Drives the real command line against real print servers of its own, in a folder of its own.
# Usage: farlink_test.sh PATH_OF_FARLINK
set -euo pipefail

farlink=$1
folder=$(mktemp -d)
export FARLINK_STATE=$folder/state TMPDIR=$folder
children=()
trap 'exec 2>/dev/null; for child in "${children[@]}"; do kill -KILL "$child" 2>/dev/null || true; done; wait; rm -rf -- "$folder"' EXIT

fail() {
    printf 'FAILED (line %s): %s\n' "${BASH_LINENO[1]}" "$1" >&2
    tail -n 40 "$folder"/*.out "$folder"/*.err >&2
    exit 1
}

# expect STATUS WORDS... : farlink WORDS ends with STATUS, and complains in one line if at all.
expect() {
    local wanted=$1 status=0
    shift
    "$farlink" "$@" >"$folder/last.out" 2>"$folder/last.err" </dev/null || status=$?
    [[ $status -eq $wanted ]] || fail "'farlink $*' ended with $status, not $wanted"
    [[ $(wc -l <"$folder/last.err") -le 1 ]] || fail "'farlink $*' complains in more than one line"
}
says() { grep -qe "$1" "$folder/last.out" || fail "no '$1' in the output"; }
complains() { grep -qe "$1" "$folder/last.err" || fail "no '$1' in the complaint"; }

is_json() {
    command -v python3 >/dev/null || return 0
    python3 -c 'import json, sys
for text in (sys.stdin.read().splitlines() if sys.argv[1] == "lines" else [sys.stdin.read()]):
    json.loads(text)' "$1" <"$folder/last.out" || fail "this is no JSON"
}

await_line() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        grep -qse "$1" "$2" && return
        sleep 0.1
    done
    fail "no line '$1' in $2"
}

# serve NAME PORT OPTIONS... : a print server whose documents go to folder NAME; sets $port and $server.
serve() {
    local name=$1 listen=$2
    shift 2
    "$farlink" printserver --listen "$listen" --out "$folder/$name" "$@" >"$folder/$name.out" 2>&1 &
    server=$!
    children+=("$server")
    await_line '^Listening' "$folder/$name.out"
    port=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/$name.out")
}

# start_print NAME FILE : prints in the background, its lines in NAME.out; sets $printing.
start_print() {
    "$farlink" print --to desk "$2" >"$folder/$1.out" 2>"$folder/$1.err" &
    printing=$!
    children+=("$printing")
}
ends_with() {
    local status=0
    wait "$printing" || status=$?
    [[ $status -eq $1 ]] || fail "printing ended with $status, not $1"
}
same_bytes() { cmp -s "$1" "$2" || fail "$2 is not what was printed"; }
state_of() { expect 0 jobs --all && sed -nE "s/^$1 +([a-z-]+) .*/\1/p" "$folder/last.out"; }
id_in() { sed -nE 's/.*\(job ([0-9]+),.*/\1/p' "$folder/$1.out" | head -n 1; }

test_ports() {
    expect 0 port list
    says '^No ports'
    expect 0 port add desk --server localhost --port 9100
    expect 1 port add DESK --server localhost --port 9100
    complains "^farlink: Port 'DESK': .*(ERROR_ALREADY_EXISTS, 183)$"
    expect 0 port add 'Büro 2' --server 10.0.0.7 --port 65533
    expect 0 port list
    [[ $(cut -d' ' -f1 "$folder/last.out" | tr '\n' ' ') == 'NAME Büro desk ' ]] || fail "the list is not in order"
    expect 0 port list --json
    is_json whole
    expect 0 port set desk --port 9200
    expect 0 port show Desk --json
    is_json whole
    says '"name": "desk"' && says '"server": "localhost"' && says '"port": 9200'
    expect 0 port delete 'Büro 2'
    expect 1 port show 'Büro 2'
    complains '(ERROR_UNKNOWN_PORT, 1796)$'

    local long_name long_server
    long_name=$(printf 'n%.0s' {1..65}) long_server=$(printf 's%.0s' {1..48})
    expect 0 port add "$long_name" --server "$long_server" --port 1
    expect 0 port delete "$long_name"
    expect 2 port add "${long_name}n" --server localhost --port 1
    expect 2 port add other --server "${long_server}s" --port 1
    expect 2 port add 'a,b' --server localhost --port 1
    expect 2 port add '' --server localhost --port 1
    expect 2 port add other --server localhost --port 65534
    expect 2 port set desk
    expect 2 port frobnicate
    complains "'frobnicate' is not known in 'farlink port'"
}

test_settings() {
    expect 0 keepalive set desk --timeout 65535
    expect 0 keepalive show desk --json
    is_json whole
    says '"period": 5' && says '"timeout": 65535'
    expect 0 keepalive defaults desk
    expect 0 keepalive show desk
    says '^timeout  20 s'
    expect 2 log level --events error,noise
    expect 0 log level --events error,data --file on --limit 64
    expect 0 log level --json
    is_json whole
    says '"limitKiB": 64'
    says "\"path\": \"$folder/Farlink.log\""
    [[ -s $folder/Farlink.log ]] && fail "errors are logged where there were none"
    expect 0 log level --defaults
    says '^file  *off'
    expect 0 about --json
    is_json whole
}

test_sent() {
    serve sent 0 --queue 2 --seconds 0.3 --documents 3
    expect 0 port set desk --server 127.0.0.1 --port "$port"
    "$farlink" sample "$folder/card.ppm" --cards 1 >"$folder/sample.out"
    printf 'one line' >"$folder/short.prn"
    expect 1 print --to desk "$folder/short.prn" "$folder/none.prn"
    complains 'none.prn.* No such file'
    expect 1 print --to nobody "$folder/short.prn"
    complains '(ERROR_INVALID_PRINTER_NAME, 1801)$'
    expect 0 print --to desk "$folder/card.ppm" "$folder/short.prn" --json
    is_json lines
    says '"state":"waiting-in-queue"'
    [[ $(grep -c '"state":"sent","done":true' "$folder/last.out") -eq 2 ]] || fail "not both were sent"
    "$farlink" print --to DESK - <"$folder/short.prn" >"$folder/stdin.out" 2>"$folder/stdin.err" ||
        fail "the standard input was not printed"
    await_line '^command 3: closed by the monitor' "$folder/sent.out"
    wait "$server" || fail "the print server did not end after its documents"
    same_bytes "$folder/card.ppm" "$folder/sent/document-0001.bin"
    same_bytes "$folder/short.prn" "$folder/sent/document-0002.bin"
    same_bytes "$folder/short.prn" "$folder/sent/document-0003.bin"
    expect 0 jobs
    says '^No jobs'
}

test_dead_server_and_retry() {
    expect 1 print --to desk --attempts 1 "$folder/short.prn"
    says 'failed: .*(WSAECONNREFUSED, 10061)$'
    expect 0 jobs --json
    is_json whole
    says '"state": "failed"'
    expect 1 port delete desk
    complains '(ERROR_PRINTER_HAS_JOBS_QUEUED, 3009)$'
    local id
    expect 0 jobs
    id=$(sed -nE 's/^([0-9]+) +failed .*/\1/p' "$folder/last.out")
    serve retried 0
    expect 0 port set desk --port "$port"
    expect 0 jobs retry "$id"
    same_bytes "$folder/short.prn" "$folder/retried/document-0001.bin"
    expect 1 jobs retry "$id"
    complains '(ERROR_INVALID_PARAMETER, 87)$'
    kill -INT "$server"
    wait "$server" || fail "the print server did not end well at Ctrl-C"
}

test_cancelling() {
    serve cancelled 0 --end cancelled --printing 0.2
    expect 0 port set desk --port "$port"
    expect 3 print --to desk "$folder/short.prn"
    says 'cancelled'

    # A job that leaves in the queue is let go when its turn comes: long enough to look, short enough to wait.
    serve queue 0 --queue 10 --seconds 1
    expect 0 port set desk --port "$port"
    start_print interrupted "$folder/short.prn"
    await_line "waiting in the print server's queue" "$folder/interrupted.out"
    expect 1 port set desk --port 9
    complains '(ERROR_BUSY, 170)$'
    kill -INT "$printing"
    ends_with 3
    [[ $(state_of "$(id_in interrupted)") == cancelled ]] || fail "Ctrl-C did not cancel"

    start_print elsewhere "$folder/short.prn"
    await_line "waiting in the print server's queue" "$folder/elsewhere.out"
    expect 0 jobs cancel "$(id_in elsewhere)"
    ends_with 3

    start_print ended "$folder/short.prn"
    await_line "waiting in the print server's queue" "$folder/ended.out"
    kill -TERM "$printing"
    ends_with 5
    [[ $(state_of "$(id_in ended)") == queued ]] || fail "SIGTERM did not leave the job queued"
    serve later 0
    expect 0 port set desk --port "$port"
    expect 0 jobs run
    same_bytes "$folder/short.prn" "$folder/later/document-0001.bin"
    expect 0 port delete desk
    expect 0 port list
    says '^No ports'
}

test_ports
test_settings
test_sent
test_dead_server_and_retry
test_cancelling
printf 'All is well.\n'
