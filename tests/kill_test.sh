#!/usr/bin/env bash
# Kills and stops printing processes at random moments, several at a time on one port, and then counts copies at
# the print server: never more than one of a document, exactly one of each that was said to be sent.
# Usage: kill_test.sh PATH_OF_FARLINK [KILLS [SEED]]
set -euo pipefail

farlink=$1 kills=${2:-100} seed=${3:-$RANDOM}
lanes=10
folder=$(mktemp -d)
export FARLINK_STATE=$folder/state TMPDIR=$folder
trap 'exec 2>/dev/null; kill -KILL $(jobs -p) 2>/dev/null || true; wait; rm -rf -- "$folder"' EXIT

fail() {
    printf 'FAILED: %s\n' "$1" >&2
    exit 1
}

printf 'seed %s\n' "$seed"
"$farlink" printserver --listen 0 --out "$folder/cards" --queue 1 --seconds 0.1 --printing 0.2 \
    >"$folder/server.out" 2>&1 &
for ((tries = 0; tries < 300; ++tries)); do
    port=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/server.out")
    [[ -n $port ]] && break
    sleep 0.1
done
"$farlink" port add card --server 127.0.0.1 --port "$port" >/dev/null

# Every fifth document is left alone; of the others each second one is killed and each second one stopped.
run_lane() {
    local lane=$1 i printing status
    RANDOM=$((seed + lane))
    for ((i = lane; i < kills * 5 / 4; i += lanes)); do
        { printf 'document %s\n' "$i" && head -c 300000 /dev/zero; } >"$folder/$i.prn"
        "$farlink" print --to card "$folder/$i.prn" >"$folder/$i.out" 2>&1 &
        printing=$! status=0
        if ((i % 5 != 0)); then
            sleep "$((RANDOM % 3)).$(printf '%03d' $((RANDOM % 1000)))"
            kill -"$( ((i % 2)) && echo KILL || echo TERM)" "$printing" 2>/dev/null || true
        fi
        wait "$printing" 2>/dev/null || status=$?
        printf '%s' "$status" >"$folder/$i.status"
    done
}
for ((lane = 0; lane < lanes; ++lane)); do
    run_lane "$lane" &
    lane_processes[lane]=$!
done
wait "${lane_processes[@]}"

declare -A copies
while read -r document; do
    cmp -s "$document" "$folder/$(sed -n '1s/document //p;1q' "$document" | tr -d '\0').prn" || continue
    name=$(head -n 1 "$document") copies[$name]=$((${copies[$name]:-0} + 1))
done < <(find "$folder/cards" -name '*.bin' -size +1k)
sent=0 ended=0
for ((i = 0; i < kills * 5 / 4; ++i)); do
    count=${copies["document $i"]:-0} status=$(cat "$folder/$i.status")
    ((count <= 1)) || fail "document $i came out $count times"
    ((status != 0 || count == 1)) || fail "document $i was said to be sent, and came out $count times"
    ((i % 5 != 0 || status == 0)) || fail "document $i was left alone, and ended with $status"
    ((status != 0 || ++sent)) && ((status == 0 || ++ended)) || true
done
[[ -z $(find "$folder" -maxdepth 1 -name 'farlink_*') ]] || fail "a copy of a document was left behind"
printf '%s sent, %s killed or stopped, no document twice\n' "$sent" "$ended"
