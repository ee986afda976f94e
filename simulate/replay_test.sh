#!/usr/bin/env bash
# The same seed gives the same run: its story, with every line of the monitor's log, is equal byte for byte.
set -euo pipefail
simulate=$1
folder=$(mktemp -d)
trap 'rm -rf -- "$folder"' EXIT
for scene in job channel overtaken deletion ports; do
    for seed in 3 "$RANDOM"; do
        "$simulate" "$scene" --seed "$seed" --log "$folder/first"
        "$simulate" "$scene" --seed "$seed" --log "$folder/second"
        [[ -s $folder/first ]] || { echo "$scene, seed $seed: an empty story"; exit 1; }
        cmp "$folder/first" "$folder/second" || { echo "$scene, seed $seed: two stories"; exit 1; }
    done
done
