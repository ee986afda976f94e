# shellcheck shell=bash disable=SC2154
# The command line on Windows, as an administrator uses it; sourced by check.sh.

# expect STATUS WORDS... : farlink.exe WORDS ends with STATUS, and complains in one line if at all.
expect() {
    local wanted=$1 status=0
    shift
    run 240 "$tool" "$@" >"$folder/last.out" || status=$?
    if [[ $status -eq $wanted ]]; then passed "farlink $*"; else
        failed "farlink $*: ended with $status, not $wanted: $(head -n 3 "$folder/last.out" "$folder/last.err")"
    fi
}
says() { check "it says '$1'" grep -qe "$1" "$folder/last.out"; }
complains() { check "it complains of '$1'" grep -qe "$1" "$folder/last.err"; }

check_tool_installs() {
    expect 1 monitor status
    complains 'ERROR_UNKNOWN_PRINT_MONITOR, 3000'
    expect 1 monitor install
    complains 'Farlink.dll. is missing.*copy it first'
    cp "$build/registry_shim.dll" "$system_library"
    expect 0 monitor install
    says 'nothing else was changed'
    expect 0 monitor status
    says 'Farlink.dll is of build [0-9.]* ([0-9a-z-]*), as this farlink.exe$'
    : >"$system_library"
    expect 1 monitor install
    complains 'is installed already'
    expect 0 monitor status --json
    says '"isOfThisPackage": false'
    cp "$build/registry_shim.dll" "$system_library"
}

check_tool_ports() {
    expect 0 port list
    says '^No ports'
    expect 0 port add 'Büro 2' --server localhost --port 9100
    expect 1 port add 'büro 2' --server localhost --port 9100
    complains 'ERROR_ALREADY_EXISTS, 183'
    expect 0 port add desk --server 127.0.0.1 --port "$port"
    expect 0 port list
    says '^Büro 2  localhost'
    check "system ports are not listed" bash -c "! grep -q COM1 '$folder/last.out'"
    expect 0 port set 'Büro 2' --server cards.example
    expect 0 keepalive set 'Büro 2' --timeout 60
    expect 0 keepalive show 'Büro 2' --json
    says '"timeout": 60'
    expect 0 port show 'BÜRO 2' --json
    says '"server": "cards.example"'
    expect 0 port delete 'Büro 2'
    expect 1 port show 'Büro 2'
    complains 'ERROR_UNKNOWN_PORT, 1796'
    expect 2 port add '' --server localhost --port 1
}

check_tool_prints() {
    expect 0 log level --file on --events all
    says 'when the spooler starts again'
    registry "$machine_environment" /v TMP /t REG_EXPAND_SZ /d '%SystemRoot%\machine'
    expect 0 log level
    says 'on, C:.windows.machine.Farlink.log'
    registry "$machine_environment" /v TMP /d 'C:\windows\Temp'
    expect 0 log level --json
    says '"path": "C:\\\\windows\\\\Temp\\\\Farlink.log"'
    expect 0 sample "$(windows_path "$folder/card.ppm")" --cards 1
    expect 1 print --to desk "$(windows_path "$folder/card.ppm")"
    complains 'add a printer to the port'
    host 60 spooler_host add-printer desk
    expect 5 print --to desk "$(windows_path "$folder/card.ppm")"
    check "the print server has what farlink printed" cmp "$folder/card.ppm" "$folder/cards/document-0001.bin"
    expect 0 status desk
    says '^reachable *yes'
    says '^jobs *none'
    expect 0 log
    says 'krelIniPort::endDocPort'
    expect 1 port delete desk
    complains "printer 'Check printer' prints on it"
    host 60 spooler_host delete-printer
    host 60 spooler_host add-printer 'COM1:,DESK' # a pooled one
    expect 1 port delete desk
    complains "printer 'Check printer' prints on it"
    host 60 spooler_host delete-printer
    expect 0 port delete desk
}

check_tool_others() {
    expect 0 about
    says '^Farlink.dll'
    expect 2 query --to desk 1
    complains 'There is no .farlink query. on Windows'
    expect 0 man
    expect 0 completion bash
    expect 0 --help
}

# All that Wine's spooler can do of it; with the monitor installed for it, then with it there.
check_tool_checks() {
    local report=$folder/report.txt
    expect 1 monitor check # nobody answers its question
    complains 'Nothing was changed'
    host 60 spooler_host add-driver 'Generic / Text Only'
    expect 0 monitor check --yes --report "$(windows_path "$report")"
    says '9 passed, 0 failed, 3 skipped'
    check "the report tells each step" grep -q '^ok .*a document arrives, byte for byte' "$report"
    check "the report has the monitor's log lines" grep -q 'krelIniPort::startDocPort' "$report"
    expect 0 port list
    says '^No ports'
}

# A print server of farlink.exe's own, printed to from outside Wine.
check_tool_serves() {
    local line tries
    : >"$folder/served.log"
    # Not by 'run': its filter would keep the line that is waited for.
    timeout 60 wine "$tool" printserver --listen 0 --out "$(windows_path "$folder/served")" --documents 1 \
        >"$folder/served.log" 2>&1 </dev/null &
    children+=($!)
    for ((tries = 0; tries < 200; ++tries)); do
        line=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/served.log")
        [[ -n $line ]] && break
        sleep 0.1
    done
    export FARLINK_STATE=$folder/state
    check "a native port to farlink.exe's print server" \
        "$simulator" port add windows --server 127.0.0.1 --port "${line:-1}"
    check "a native document to farlink.exe's print server" \
        timeout 60 "$simulator" print --to windows --retry-for 0 "$folder/card.ppm"
    check "farlink.exe's print server has the document" cmp "$folder/card.ppm" "$folder/served/document-0001.bin"
}

# Wine's spooler, in the process of farlink.exe, would take the library beside it for the installed one.
check_tool() {
    tool=$folder/tool/farlink.exe
    system_library=$WINEPREFIX/drive_c/windows/system32/Farlink.dll
    mkdir "$folder/tool"
    cp "$build/farlink.exe" "$tool"
    serve cards
    check_tool_installs
    check_tool_ports
    check_tool_prints
    check_tool_others
    check_tool_serves
    check_tool_checks
    expect 0 monitor uninstall
    expect 1 monitor status
    expect 0 monitor check --yes --json --restart-spooler --report "$(windows_path "$folder/report.txt")"
    says '"failed": 0'
    expect 1 monitor status
    stage_end "farlink.exe"
}
