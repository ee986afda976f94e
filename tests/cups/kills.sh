#!/usr/bin/env bash
# Kills cupsd, or what runs for it, at random moments, and counts the cards: none comes out twice unasked, none is
# lost, and one that nobody can be sure of is held. Usage: kills.sh FOLDER_OF_THE_BUILD [ROUNDS [SEED]]
set -euo pipefail

build=$1 rounds=${2:-3}
RANDOM=${3:-$$}
printf 'seed %s\n' "${3:-$$}"
source "$(dirname "${BASH_SOURCE[0]}")/fixture.sh"
queues=(quick queued sent slow)  # each longest in another phase
jobs=()
killed=0 held=0

# cupsd knows the upper one of a job's two processes. Until there are both, a kill is the end of a job for cupsd,
# whatever a backend does.
uppers() { local upper; for upper in $(pgrep -P "$cupsd"); do ! pgrep -P "$upper" >/dev/null || echo "$upper"; done; }
workers() { local upper; for upper in $(uppers); do pgrep -P "$upper" || true; done; }
are_saved() { for job in "${jobs[@]}"; do [[ -f $root/spool/$(printf 'c%05d' "${job##*-}") ]] || return 1; done; }

strike() {
    case $1 in
        cupsd)
            await are_saved  # what cupsd itself forgets is not ours
            kill -KILL "$cupsd"
            wait "$cupsd" 2>/dev/null || true
            start_cups
            ;;
        upper) kill -KILL $(uppers) 2>/dev/null || true ;;
        worker) kill -KILL $(workers) 2>/dev/null || true ;;
    esac
}

# What became of a job, and whether it fits with what came out.
judge() {
    local job=$1 file=$2
    await is_done_or_held "$job"
    if is_done "$job"; then
        has_copies 1 "$file" || fail "$job is done, and came out $(copies "$file") times"
        return
    fi
    held=$((held + 1))
    [[ $(copies "$file") -le 1 ]] || fail "$job is held, and came out $(copies "$file") times"
    until is_done "$job"; do  # after cupsd was killed, a person may be asked again
        lp -i "$job" -H resume
        await is_done_or_held "$job"
    done
    [[ $(copies "$file") -ge 1 && $(copies "$file") -le 2 ]] || fail "$job came out $(copies "$file") times"
}

start_server quick
start_server queued --queue 2 --seconds 0.5
start_server sent --printing 1.5
start_server slow --rate 30000000
make_cups
for queue in "${queues[@]}"; do add_queue "$queue" "$queue"; done
for ((round = 0; round < rounds; ++round)); do
    targets=(cupsd worker upper)
    target=${targets[round % 3]}
    jobs=()
    for queue in "${queues[@]}"; do
        size=20000
        [[ $queue == slow ]] && size=30000000
        make_document "$folder/$queue.prn" "$size"
        print "$queue" "$folder/$queue.prn"
        jobs+=("$job")
    done
    sleep "$((RANDOM % 3)).$((RANDOM % 10))"
    killed=$((killed + $(uppers | wc -l)))
    strike "$target"
    for ((i = 0; i < ${#queues[@]}; ++i)); do judge "${jobs[i]}" "$folder/${queues[i]}.prn"; done
    rm -f "$folder"/*.cards/*
done
printf '%s jobs were cut off, %s held; no card came out twice unasked, none is lost\n' "$killed" "$held"
