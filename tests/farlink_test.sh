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
    rm -f "$folder/$name.out"  # a server before may have said that it listens
    "$farlink" printserver --listen "$listen" --out "$folder/$name" "$@" >"$folder/$name.out" 2>&1 &
    server=$!
    children+=("$server")
    await_line '^Listening' "$folder/$name.out"
    port=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/$name.out")
}

# start_print NAME FILE : prints in the background, its lines in NAME.out; sets $printing.
start_print() {
    rm -f "$folder/$1.out"  # nothing of an earlier one is waited for
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
    expect 0 port show 'BÜRO 2'
    says '^name  *Büro 2$'
    expect 1 port delete none 'BÜRO 2'
    says "'Büro 2' is deleted"
    complains '(ERROR_UNKNOWN_PORT, 1796)$'
    expect 1 port show desc
    complains "did you mean 'desk'"

    local long_name long_server
    long_name=$(printf 'n%.0s' {1..65}) long_server=$(printf 's%.0s' {1..48})
    expect 0 port add "$long_name" --server "$long_server" --port 1
    expect 0 port delete "$long_name"
    expect 2 port add "${long_name}n" --server localhost --port 1
    expect 2 port add other --server "${long_server}s" --port 1
    expect 2 port add 'a,b' --server localhost --port 1
    expect 2 port add '' --server localhost --port 1
    expect 2 port add other --server localhost --port 65534
    local server
    for server in 'a b' 127.0.0.1:9100 ::1 http://cards 10.0.0.256; do expect 2 port add other --server "$server" --port 1; done
    expect 0 port add octal -s cards -p 010 --period 5 --timeout 14
    complains 'Warning: .*three periods'
    expect 0 port show octal -j
    says '"port": 10,' && says '"timeout": 14'
    expect 2 port set desk
    expect 2 port set desk --timeout 32768
    expect 2 prot list
    complains "'prot' is not known in 'farlink' (did you mean 'port'?)"
    expect 0 help port add
    says '^Usage: farlink port add'
    expect 2 help port ad
    local status=0
    "$farlink" port list >/dev/full 2>"$folder/last.err" || status=$?
    [[ $status -eq 1 ]] || fail "a full disk went unseen"
    complains 'No space left'
}

# A list goes into another state folder and comes back the same; a file with a fault in it changes nothing.
test_import() {
    "$farlink" port list --json >"$folder/ports.json"
    local FARLINK_STATE=$folder/other
    expect 0 port import "$folder/ports.json"
    says '^2 ports: 2 added'
    expect 0 port set desk --port 1 --timeout 99
    sed 's/"octal"/"x,y"/' "$folder/ports.json" >"$folder/bad.json"
    expect 1 port import "$folder/bad.json"
    complains 'Port 2 of the file'
    sed "s/\"octal\"/\"$(printf 'n%.0s' {1..66})\"/" "$folder/ports.json" >"$folder/bad.json"
    expect 2 port import "$folder/bad.json"
    expect 0 port show desk
    says '^port  *1 '
    expect 0 port import "$folder/ports.json"
    says '0 added, 1 changed, 1 as'
    expect 0 port list --json
    same_bytes "$folder/ports.json" "$folder/last.out"
    FARLINK_STATE=$folder/state
    expect 0 port delete octal
}

test_settings() {
    expect 0 keepalive set desk --timeout 32767
    expect 0 keepalive show desk --json
    is_json whole
    says '"period": 5' && says '"timeout": 32767'
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
    expect 0 --version
    says '^farlink [0-9.]* ([0-9a-z-]*)$'
    expect 0 about --json
    is_json whole
}

test_sent() {
    serve sent 0 --queue 2 --seconds 0.3 --documents 5
    expect 0 port set desk --server 127.0.0.1 --port "$port"
    "$farlink" sample "$folder/card.ppm" --cards 1 >"$folder/sample.out"
    printf 'one line' >"$folder/short.prn"
    : >"$folder/empty.prn"
    expect 1 print --to desk "$folder/empty.prn"
    complains 'is empty; nothing is printed'
    expect 1 print --to nobody "$folder/short.prn"
    complains '(ERROR_UNKNOWN_PORT, 1796)$'
    expect 2 print --retry-for never "$folder/short.prn"
    expect 0 print --to desk "$folder/card.ppm" "$folder/short.prn" --json
    is_json lines
    says '"state":"waiting-in-queue"' && says '"position":2'
    [[ $(grep -c '"state":"sent","done":true' "$folder/last.out") -eq 2 ]] || fail "not both were sent"
    # To the only port there is; what is bad among several doesn't keep the rest.
    expect 1 print -n 2 --title $'A \e[31mcard' "$folder/none.prn" "$folder/short.prn"
    complains 'none.prn.* No such file'
    says '^A .*card (copy 2 of 2): sent$'
    grep -q $'\e' "$folder/last.out" && fail "a control character reached the terminal"
    FARLINK_PORT=127.0.0.1:$port "$farlink" print - <"$folder/short.prn" >"$folder/stdin.out" 2>&1 ||
        fail "the standard input was not printed"
    await_line ' command 5: closed by the monitor' "$folder/sent.out"
    wait "$server" || fail "the print server did not end after its documents"
    same_bytes "$folder/card.ppm" "$folder/sent/document-0001.bin"
    for copy in 2 3 4 5; do same_bytes "$folder/short.prn" "$folder/sent/document-000$copy.bin"; done
}

test_dead_server() {
    expect 1 print --to desk --retry-for 0 "$folder/short.prn" "$folder/short.prn" --json
    [[ $(grep -c '"state":"not-connected","done":true.*nothing listens on 127.0.0.1' "$folder/last.out") -eq 2 ]] ||
        fail "no reason"
    # It comes back while the document is tried again.
    start_print patient "$folder/short.prn"
    await_line 'trying again' "$folder/patient.out"
    serve back "$port"
    ends_with 0
    same_bytes "$folder/short.prn" "$folder/back/document-0001.bin"
    kill -INT "$server"
    wait "$server" || fail "the print server did not end well at Ctrl-C"
    "$farlink" print --to desk --retry-for 0 "$folder/short.prn" >/dev/full 2>"$folder/full.err" &&
        fail "output that can't be written is no error"
    return 0
}

test_cancelling() {
    serve cancelled 0 --end cancelled --printing 0.2
    expect 0 port set desk --port "$port"
    expect 3 print --to desk "$folder/short.prn"
    complains 'cancelled at the print server'

    serve queue 0 --queue 10 --seconds 100
    expect 0 port set desk --port "$port"
    for signal in INT TERM HUP; do
        start_print interrupted "$folder/short.prn"
        await_line "waiting in the print server's queue, place 10" "$folder/interrupted.out"
        kill -$signal "$printing"
        ends_with 3
        grep -q 'cancelled; nothing of it is out' "$folder/interrupted.err" || fail "not told what was cancelled"
    done
    # Two at once, while input is taken in that never ends.
    mkfifo "$folder/input"
    start_print interrupted "$folder/input"
    exec 3>"$folder/input"
    printf 'half a card' >&3
    kill -INT "$printing" && kill -TERM "$printing"
    ends_with 3
    exec 3>&-

    serve silent 0 --end never
    expect 4 print --to "127.0.0.1:$port" "$folder/short.prn"
    complains 'look at the printer before'
    sleep 1
    [[ $(find "$folder/silent" -type f | wc -l) -eq 1 ]] || fail "an unconfirmed card was printed again"
    expect 0 port delete desk
    expect 0 port list
    says '^No ports'
}

# A port 'desk' with a print server, whose log is on.
test_questions() {
    serve asked 0 --queue 30000
    expect 0 port add desk --server 127.0.0.1 --port "$port"
    expect 0 query --to desk 0x1234 --hex '61 00:6B'
    says '^00000000  61 00 6b  .*|a.k|$'
    printf 'a\0b' >"$folder/question.bin"
    expect 0 query --to desk 7 --in "$folder/question.bin" --raw
    same_bytes "$folder/question.bin" "$folder/last.out"
    expect 0 query --to desk 7 --in "$folder/question.bin" --out 2 --json
    is_json whole
    says '"size": 2' && says '"hex": "6100"'
    local asked=$port
    serve sending 0 --read-back 'ribbon low'
    expect 0 port set desk --port "$port"
    expect 0 read --to desk 6 --raw
    [[ $(<"$folder/last.out") == ribbon ]] || fail "not what the printer sent"
    expect 0 read --to desk 64 --wait 0.5 --json
    is_json whole
    says '"hex": "206c6f77"'
    expect 0 read --to desk 64 --wait 0
    says '^The printer sent nothing'
    expect 1 read --to nobody 7
    expect 0 port set desk --port "$asked"
    expect 2 query --to desk 0
    expect 2 query --to desk 7 --hex 123
    expect 2 query --to desk 7 --hex 12 --in "$folder/question.bin"
    expect 1 query --to nobody 7

    expect 0 status desk
    says '^reachable  *yes' && says '^protocol  *not known: the log is off'
    expect 0 log level --file on --limit 1024
    start_print asked_meanwhile "$folder/short.prn"
    await_line "waiting in the print server's queue" "$folder/asked_meanwhile.out"
    expect 0 query --to desk 7
    expect 1 print --json --to 127.0.0.1:1 --retry-for 0 "$folder/short.prn"
    complains 'another process writes the log file'
    expect 0 status desk --json
    is_json whole
    says '"reachable": "yes"' && says '"text": "1.10"' && says '"text": "queue position = 30000,'
    expect 0 status
    says '^desk  *yes'
    kill -KILL "$printing"
    ends_with 137
    expect 1 print --json --to 127.0.0.1:1 --retry-for 0 "$folder/short.prn"
    grep -q 'another process' "$folder/last.err" && fail "the log is nobody's"
    expect 0 port set desk --port 1
    expect 1 query --to desk 7
    complains 'nothing listens.*(WSAECONNREFUSED, 10061)$'
    expect 1 status desk
    says '^reachable  *no: nothing listens on ' && says '^failures .*  Failed to connect\.$'
    expect 1 status
    says '^desk  *no'
}

# With a ring that one process writes over twice while it is followed. A document's lines are half of it, so
# that a follower has more than a second to come by; one that had less says so.
test_log() {
    expect 0 log --port desk
    grep -qv ' 127\.0\.0\.1:1 0x' "$folder/last.out" && fail "a line of another tag"
    expect 0 log --json
    is_json lines
    expect 2 log --since 24:00:00
    expect 1 log "$folder/none.log"
    complains 'There is no log file'
    serve logged 0
    expect 0 port set desk --port "$port"
    expect 0 log level --defaults
    expect 0 log level --file on
    says '^limit  *10240 KiB'
    expect 0 log level --limit 64
    rm "$folder/Farlink.log"
    "$farlink" log --follow --since 00:00:00 >"$folder/followed.out" 2>"$folder/followed.err" &
    local following=$! documents i
    children+=("$following")
    for ((i = 0; i < 5; ++i)); do documents+=("$folder/short.prn"); done
    expect 0 print --to desk "${documents[@]}"
    await_line "$(tail -n 1 < <("$farlink" log))" "$folder/followed.out"
    kill "$following"
    expect 0 log
    [[ $(wc -l <"$folder/followed.out") -gt $(wc -l <"$folder/last.out") ]] || fail "the log never wrapped"
    tail -n "$(wc -l <"$folder/last.out")" "$folder/followed.out" | cmp -s - "$folder/last.out" ||
        fail "followed lines are not those of the log"
    grep -qs 'lines are missing here' "$folder/followed.err" ||
        [[ $(grep -c 'gStartDocPort$' "$folder/followed.out") -eq 5 ]] || fail "lines were lost or repeated"
    expect 0 log level --defaults
}

# The words that complete `farlink WORDS...`, the last one begun.
completed() {
    COMP_WORDS=("$farlink" "$@") COMP_CWORD=$# COMPREPLY=()
    _farlink
    printf '%s ' "${COMPREPLY[@]}"
}
test_help() {
    "$farlink" completion bash >"$folder/completion.out"
    # shellcheck disable=SC1091
    source "$folder/completion.out"
    [[ $(completed po) == 'port ' ]] || fail "no command is completed"
    [[ $(completed log level --) == *--limit* ]] || fail "no option is completed"
    [[ $(completed log level --file o) == 'on off ' ]] || fail "no value is completed"
    [[ $(completed port show d) == 'desk ' && $(completed query --to d) == 'desk ' ]] || fail "no port is completed"
    expect 0 man
    says '^\.SS farlink port add' && says '^\.TH FARLINK 1' && says '^\.SH ENVIRONMENT' && says '^\.SH FILES' && says '^\.SH EXIT STATUS'
    command -v groff >/dev/null || return 0
    [[ -z $(groff -man -Tutf8 -ww -z "$folder/last.out" 2>&1) ]] || fail "the manual page doesn't format"
}

test_ports
test_import
test_settings
test_sent
test_dead_server
test_cancelling
test_questions
test_log
test_help
printf 'All is well.\n'
