#!/usr/bin/env bash
# Prints through a real cupsd to real print servers. Usage: stories.sh FOLDER_OF_THE_BUILD STORY
set -euo pipefail

build=$1
source "$(dirname "${BASH_SOURCE[0]}")/fixture.sh"
ppd=$(dirname "${BASH_SOURCE[0]}")/../../cups/farlink-raw.ppd
document=$folder/card.prn

expect_copies() { [[ $(copies "$2") -eq $1 ]] || fail "${2##*/} came out $(copies "$2") times, not $1"; }

story_printing() {
    start_server a --queue 2 --seconds 1
    start_server b
    make_cups
    [[ $("$backend") == 'network farlink "Unknown" "Card print server"'* ]] || fail "the backend isn't listed"
    [[ -z $(cupstestppd -q "$ppd" 2>&1) ]] || fail "the PPD has faults"
    add_queue front a
    add_queue back b '?keep-alive-period=2&keep-alive-timeout=10&read-back=yes'
    make_document "$document" 3000000
    for name in bert cora dora; do make_document "$folder/$name" 1000; done

    print front "$document" -U anna -t 'Gärtner Müller: 1. "Ausweis"'
    await said "$job" 'position 2'
    await said "$job" 'position 1'
    print front "$folder/bert" -U bert
    print back "$folder/cora" -U cora -n 3
    print back "$folder/dora" -U dora -t 'of two' "$document"
    await all_done
    expect_copies 2 "$document"
    expect_copies 1 "$folder/bert"
    expect_copies 3 "$folder/cora"
    expect_copies 1 "$folder/dora"
    grep -aqE 'D .*\[Job 1\] Received session id' "$root/log/error_log" || fail "the monitor's lines aren't in the log"

    # What comes on standard input has its copies in it.
    DEVICE_URI=farlink://127.0.0.1:${ports[b]} CUPS_CACHEDIR=$folder "$backend" 9 anna title 4 \
        'job-uuid=urn:uuid:1-2 sides=one' <"$folder/bert" 2>"$folder/stdin.out"
    expect_copies 2 "$folder/bert"
}

# A URI, and what is said of it.
refused_uris=(
    'farlink://' 'names no print server'
    'farlink:9100' 'farlink://HOST:PORT/'
    'farlink://h/' 'no port'
    'farlink://h:0/' "can't be read"
    'farlink://h:65534/' 'the highest is 65533'
    'farlink://h:99999/' "can't be read"
    'farlink://h:9100/queue' "path '/queue'"
    'farlink://anna:secret@h:9100/' 'a print server knows none'
    'farlink://[::1]:9100/' 'IPv4'
    'farlink://a%20b:9100/' "'a b'"
    'farlink://hundertfünfzig:9100/' "can't be read"
    'farlink://h:9100/?keepalive=5' "option 'keepalive'"
    'farlink://h:9100/?keep-alive-period=5s' 'in seconds'
    'farlink://h:9100/?keep-alive-period=0' 'in seconds'
    'farlink://h:9100/?keep-alive-period=20' "isn't longer"
    'farlink://h:9100/?read-back=maybe' 'yes or no'
    'socket://h:9100/' "begins with 'socket'"
    'rubbish' 'farlink://HOST:PORT/'
)

story_odd_uris() {
    local i status
    make_cups
    make_document "$document" 1000
    for ((i = 0; i < ${#refused_uris[@]}; i += 2)); do
        status=0
        DEVICE_URI=${refused_uris[i]} CUPS_CACHEDIR=$folder "$backend" 1 anna title 1 job-uuid=urn:uuid:1 \
            "$document" 2>"$folder/refusal.out" || status=$?
        [[ $status -eq 4 && $(wc -l <"$folder/refusal.out") -eq 1 ]] || fail "${refused_uris[i]} isn't refused"
        grep -qF -- "${refused_uris[i + 1]}" "$folder/refusal.out" || fail "no reason for ${refused_uris[i]}"
    done

    # The queue stops with the reason, and keeps the job until its URI is mended.
    start_server a
    add_queue card a '?read-back=later'
    print card "$document"
    await tells card "has 'later' as read-back"
    add_queue card a
    cupsenable card
    await is_done "$job"
    expect_copies 1 "$document"
}

# What an earlier run left, the copies that are wanted, the exit status and the copies that come of it.
left_marks=(
    'in-doubt 0 another-life' 1 3 0
    'held 0 another-life' 1 3 0
    'through 1 another-life' 1 3 0
    'clear 2 another-life' 3 0 1
    $'clear 0 x\nin-doubt 0 torn' 1 0 1  # the bytes behind it never went out
)

story_marks() {
    local i status second third
    start_server a
    make_cups
    export DEVICE_URI=farlink://127.0.0.1:${ports[a]} CUPS_CACHEDIR=$folder
    mkdir -m 0777 "$folder/farlink"
    for ((i = 0; i < ${#left_marks[@]}; i += 4)); do
        status=0
        make_document "$document" 1000
        [[ ${left_marks[i]} == *torn ]] || left_marks[i]+=$'\n'
        printf '%s' "${left_marks[i]}" >"$folder/farlink/$i"
        "$backend" 1 anna title "${left_marks[i + 1]}" "job-uuid=urn:uuid:$i" "$document" 2>"$folder/mark.out" || status=$?
        [[ $status -eq ${left_marks[i + 2]} ]] || fail "'${left_marks[i]}' ends with $status"
        expect_copies "${left_marks[i + 3]}" "$document"
        [[ $status -eq 0 ]] || grep -q 'ERROR: .*look at the printer first' "$folder/mark.out" || fail "no reason"
    done

    # cupsd may run a job again while its last run is still at work.
    start_server b --printing 3
    make_document "$document" 1000
    for run in first second; do
        DEVICE_URI=farlink://127.0.0.1:${ports[b]} "$backend" 1 anna title 1 job-uuid=urn:uuid:twice "$document" \
            2>"$folder/$run.out" &
        second=$!
        await has_copies 1 "$document"
    done
    await grep -q 'an earlier run' "$folder/second.out"
    status=0
    DEVICE_URI=farlink://127.0.0.1:${ports[b]} "$backend" 1 anna title 1 job-uuid=urn:uuid:twice "$document" \
        2>"$folder/third.out" &
    await grep -qs 'an earlier run' "$folder/third.out"
    third=$!
    (kill -TERM "$third")  # by another process than the one that stands for cupsd here
    wait "$third" || status=$?
    [[ $status -eq 6 ]] || fail "a run that was stopped while it waited ends with $status"
    wait "$second" || fail "the second run failed"
    expect_copies 1 "$document"

    # On standard input it may be the job's next document, so a person decides.
    make_document "$document" 1000
    status=0
    for run in first second; do
        DEVICE_URI=farlink://127.0.0.1:${ports[b]} "$backend" 1 anna title 1 job-uuid=urn:uuid:input \
            <"$document" 2>"$folder/$run.out" &
        await has_copies 1 "$document"
    done
    wait $! || status=$?
    [[ $status -eq 3 ]] || fail "the second run ends with $status"

    # Without its mark nothing is printed.
    status=0
    CUPS_CACHEDIR=$folder/nowhere "$backend" 1 anna title 1 job-uuid=urn:uuid:1 "$document" 2>"$folder/mark.out" || status=$?
    [[ $status -eq 4 ]] && grep -q "nowhere/farlink/1'" "$folder/mark.out" || fail "it prints without its mark"
    status=0
    make_document "$document" 1000
    (trap '' XFSZ && ulimit -f 0 && exec "$backend" 1 anna title 1 job-uuid=urn:uuid:full "$document") \
        2> >(cat >"$folder/full.out") || status=$?
    [[ $status -eq 4 ]] || fail "when its mark can't be written it ends with $status"
    await grep -q "ERROR: .*farlink/full'.* can't be written" "$folder/full.out"
    expect_copies 0 "$document"
}

# In each phase at once: what is blocked comes back, and only what was all out can be a card.
story_cancelling() {
    local begin
    start_server silent --fault session-id:silence
    start_server busy --queue 5 --seconds 1000
    start_server slow --rate 20000
    start_server printing --printing 1000
    start_server gone
    kill_server gone
    make_cups
    make_document "$document" 3000000
    make_document "$folder/large" 30000000  # more than waits in the system's buffers
    for server in silent busy printing gone; do
        add_queue "$server" "$server"
        print "$server" "$document"
    done
    add_queue slow slow
    print slow "$folder/large"
    await shows silent-1 'connecting'
    await shows busy-2 'position 5'
    await shows slow-5 'sending'
    await server_says printing 'is whole'
    await shows gone-4 'nothing listens'
    begin=$SECONDS
    cancel -a
    await all_done
    await no_backend
    [[ $((SECONDS - begin)) -le 10 ]] || fail "cancelling took $((SECONDS - begin)) seconds"
    for ((number = 1; number <= 5; ++number)); do
        ended "$number" 'canceled by user' || fail "job $number isn't cancelled"
    done
    expect_copies 1 "$document"

    # A queue that is stopped keeps its job, and what is printed of it isn't printed again.
    start_server late --rate 200000
    add_queue late late
    make_document "$folder/small" 1000
    print late "$folder/large" "$folder/small"  # lp takes the small one first
    await has_copies 1 "$folder/small"
    await shows "$job" 'sending'
    cupsdisable late
    await no_backend
    kill_server late
    start_server late
    cupsenable late
    await is_done "$job"
    expect_copies 1 "$folder/small"
    expect_copies 1 "$folder/large"
}

story_outages() {
    start_server a --queue 3 --seconds 1000
    kill_server a
    make_cups
    make_document "$document" 30000000
    add_queue card a '?keep-alive-period=1&keep-alive-timeout=5'
    print card "$document"
    await shows "$job" 'nothing listens'
    await tells card 'connecting-to-device'

    start_server a --queue 3 --seconds 1000
    await shows "$job" 'position 3'
    ! lpstat -l -p card | grep -q 'connecting-to-device' || fail "connecting-to-device wasn't taken back"
    kill_server a  # in the queue
    start_server a --rate 1000000
    await shows "$job" 'sending'
    kill_server a  # in the data
    start_server a --fault bind-reply:error=5#1
    await said "$job" 'refused'
    await is_done "$job"
    expect_copies 1 "$document"

    kill_server a
    start_server a --end cancelled
    print card "$document"
    await ended "$job" 'canceled at printer'
}

# The second copy may be out, so a person decides; the queue goes on meanwhile. What is confirmed is not printed
# again.
story_unconfirmed() {
    local held
    start_server a --printing 10
    make_cups
    add_queue card a
    make_document "$document" 100000
    make_document "$folder/other" 1000
    print card "$document" -n 2
    held=$job
    await has_copies 2 "$document"
    kill_server a
    await is_held "$held"
    shows "$held" 'look at the printer first; release to print again' || fail "the job doesn't say why it waits"
    start_server a
    print card "$folder/other"
    await is_done "$job"
    expect_copies 2 "$document"
    lp -i "$held" -H resume
    await is_done "$held"
    expect_copies 3 "$document"
}

"story_$2"
