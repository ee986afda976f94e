#!/usr/bin/env bash
# Kills the printing process at random moments, and asks afterwards for every job that it had accepted: each
# has to end as sent, with its document whole at the print server, by going on with what waits and by retrying
# what says that it needs it. Usage: kill_test.sh PATH_OF_FARLINK [JOBS [SEED]]
set -euo pipefail

farlink=$1 jobs=${2:-24} seed=${3:-$RANDOM}
lanes=8
folder=$(mktemp -d)
export FARLINK_STATE=$folder/state TMPDIR=$folder
trap 'exec 2>/dev/null; kill -KILL $(jobs -p) 2>/dev/null || true; wait; rm -rf -- "$folder"' EXIT

fail() {
    printf 'FAILED: %s\n' "$1" >&2
    tail -n 20 "$folder/jobs.out" "$folder/last.out" >&2
    exit 1
}

printf 'seed %s\n' "$seed"
"$farlink" printserver --listen 0 --out "$folder/cards" >"$folder/server.out" 2>&1 &
for ((tries = 0; tries < 300; ++tries)); do
    port=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/server.out")
    [[ -n $port ]] && break
    sleep 0.1
done
for ((lane = 0; lane < lanes; ++lane)); do
    "$farlink" port add "card $lane" --server 127.0.0.1 --port "$port" >"$folder/last.out"
done

await_acceptance() {
    local tries
    for ((tries = 0; tries < 200; ++tries)); do
        grep -qs '(job ' "$1" && return
        sleep 0.1
    done
}

# One lane's jobs, one after the other. Every other one is killed some time after it was accepted, which may be
# after its end; the rest at any moment.
run_lane() {
    local lane=$1 i printing
    RANDOM=$((seed + lane))
    for ((i = lane; i < jobs; i += lanes)); do
        printf 'document %s' "$i" >"$folder/$i.prn"
        "$farlink" print --to "card $lane" "$folder/$i.prn" >"$folder/$i.out" 2>&1 &
        printing=$!
        ((RANDOM % 2)) || await_acceptance "$folder/$i.out"
        sleep "$((RANDOM % 2)).$(printf '%03d' $((RANDOM % 1000)))"
        kill -KILL "$printing" 2>/dev/null || true
        wait "$printing" 2>/dev/null || true
    done
}
for ((lane = 0; lane < lanes; ++lane)); do
    run_lane "$lane" &
    lane_processes[lane]=$!
done
wait "${lane_processes[@]}"

"$farlink" jobs --all >"$folder/jobs.out"
printf 'after the kills: %s\n' "$(sed -nE 's/^[0-9]+ +([a-z-]+) .*/\1/p' "$folder/jobs.out" | sort | uniq -c | tr -s ' \n' ' ')"
for ((round = 0; round < 5; ++round)); do
    timeout 300 "$farlink" jobs run >"$folder/last.out" 2>&1 || true
    "$farlink" jobs >"$folder/jobs.out"
    mapfile -t stuck < <(sed -nE 's/^([0-9]+) +(failed|unconfirmed) .*/\1/p' "$folder/jobs.out")
    [[ ${#stuck[@]} -eq 0 ]] || timeout 300 "$farlink" jobs retry "${stuck[@]}" >"$folder/last.out" 2>&1 || true
    grep -qE '^[0-9]' "$folder/jobs.out" || break
done

"$farlink" jobs --all >"$folder/jobs.out"
accepted=0
for ((i = 0; i < jobs; ++i)); do
    id=$(sed -nE 's/.*\(job ([0-9]+),.*/\1/p' "$folder/$i.out" | head -n 1)
    [[ -n $id ]] || continue  # killed before it was accepted
    accepted=$((accepted + 1))
    grep -qE "^$id +sent " "$folder/jobs.out" || fail "job $id is not sent"
    grep -lxq "document $i" "$folder"/cards/*.bin || fail "document $i of job $id is not at the print server"
done
[[ $accepted -gt 0 ]] || fail "every process was killed before its job was accepted"
for ((lane = 0; lane < lanes; ++lane)); do
    "$farlink" port show "card $lane" | grep -q "$port" || fail "a port lost its settings"
done
printf '%s jobs, %s accepted, all sent\n' "$jobs" "$accepted"
