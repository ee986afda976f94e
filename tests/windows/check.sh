#!/usr/bin/env bash
# Runs what was built for Windows under Wine, in a fresh prefix of its own without a display: the tests, and the
# hosts of this folder, in which the system's own spooler loads the monitor.
# Usage: check.sh BUILD_FOLDER PATH_OF_A_NATIVE_FARLINK
# Shows the failures and a line of counts per stage; ends with "N passed, N failed", and with status 1 if any did.
set -uo pipefail

build=$(realpath -- "$1")
simulator=$(realpath -- "$2")
folder=$(mktemp -d)
results=$folder/results
children=()

export WINEPREFIX=$folder/prefix TMPDIR=$folder WINEDEBUG=-all LC_ALL=C.UTF-8
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='
unset DISPLAY WAYLAND_DISPLAY
mkdir "$WINEPREFIX"
: >"$results"

clean_up() {
    local child
    for child in "${children[@]}"; do kill "$child" 2>/dev/null; done
    stop_wine
    rm -rf -- "$folder"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver64)
stop_wine() {
    timeout 30 "$wineserver" -k 2>/dev/null
    timeout 30 "$wineserver" -w 2>/dev/null
}

# --- pieces ------------------------------------------------------------------------------------------------

# run SECONDS PROGRAM WORDS... : under Wine; its lines without carriage returns, its complaints in last.err.
run() {
    local limit=$1
    shift
    timeout -k 10 "$limit" wine "$@" 2>"$folder/last.err" </dev/null | tr -d '\r'
    return "${PIPESTATUS[0]}"
}

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

passed() { printf 'ok %s\n' "$1" >>"$results"; }
failed() { printf 'FAILED %s\n' "$1" | tee -a "$results"; }
check() { # NAME COMMAND...
    local name=$1
    shift
    if "$@" >"$folder/check.out" 2>&1; then passed "$name"; else
        failed "$name: $(head -c 300 "$folder/check.out")"
    fi
}

# host SECONDS PROGRAM WORDS... : one of our hosts, whose lines are results. It has to come to its end.
host() {
    local limit=$1 program=$build/$2.exe name=${*:2:2} status=0
    [[ -e $program ]] || program=$folder/$2.exe
    shift 2
    run "$limit" "$program" "$@" >"$folder/host.out" || status=$?
    grep -E '^(ok|FAILED) ' "$folder/host.out" | sed -E "s|^(ok\|FAILED) |\1 $name: |" >"$folder/host.results"
    grep '^FAILED' "$folder/host.results"
    cat "$folder/host.results" >>"$results"
    if grep -qE '^[0-9]+ passed, [0-9]+ failed$' "$folder/host.out"; then
        [[ $status -le 1 ]] && return
    fi
    failed "$name: ended with status $status"
}

counted=0
stage_end() { # NAME : the counts since the last stage's end
    local lines good
    lines=$(tail -n "+$((counted + 1))" "$results")
    counted=$(wc -l <"$results")
    good=$(grep -c '^ok ' <<<"$lines")
    printf '%-34s %4d passed %3d failed   after %d s\n' "$1" "$good" "$(grep -c '^FAILED ' <<<"$lines")" "$SECONDS"
}

# serve NAME OPTIONS... : a native print server whose documents go to folder NAME; sets $port.
serve() {
    local name=$1 tries
    shift
    "$simulator" printserver --listen 0 --out "$folder/$name" "$@" >"$folder/$name.log" 2>&1 &
    children+=($!)
    for ((tries = 0; tries < 100; ++tries)); do
        port=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/$name.log" 2>/dev/null)
        [[ -n $port ]] && return
        sleep 0.1
    done
    failed "the print server '$name' listens"
    port=1
}

registry() { run 60 reg add "$@" /f >/dev/null || failed "reg add $*"; }
monitors='HKLM\System\CurrentControlSet\Control\Print\Monitors'
machine_environment='HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
our_ports="$monitors\\Remote TCP/IP Card Printer Port\\Ports"
library=$(windows_path "$build/Farlink.dll")
shim=$(windows_path "$build/registry_shim.dll")

# --- stages ------------------------------------------------------------------------------------------------

one_export() {
    local names
    names=$(x86_64-w64-mingw32-objdump -p "$build/Farlink.dll" | sed -nE 's/^\s+\[ *[0-9]+\] ([A-Za-z_?]\S*)$/\1/p')
    [[ $names == InitializePrintMonitor2 ]]
}
system_imports_only() {
    ! x86_64-w64-mingw32-objdump -p "$1" | grep 'DLL Name:' |
        grep -viE ' (advapi32|kernel32|msvcrt|ws2_32|shell32|user32|version)\.dll$| winspool\.drv$'
}

check_files() {
    local file
    check "Farlink.dll has one export" one_export
    for file in Farlink.dll farlink.exe; do
        check "$file imports from system libraries only" system_imports_only "$build/$file"
    done
    stage_end "files"
}

# Crashes then take one line and no minute; the monitor's log lies where a spooler's service would write it.
prepare() {
    registry 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d false
    registry "$machine_environment" /v TMP /d 'C:\windows\Temp'
    registry 'HKCU\Environment' /v TEMP /d 'C:\windows\Temp'
    registry 'HKCU\Environment' /v TMP /d 'C:\windows\Temp'
    registry 'HKCU\Software\Wine\AppDefaults\direct_host_2000.exe' /v Version /d win2k
    cp "$build/direct_host.exe" "$folder/direct_host_2000.exe"
    # Wine tells a program that environment only when it starts anew.
    stop_wine
}

check_unaided() {
    host 60 spooler_host install "$library"
    host 120 spooler_host unaided
    host 180 spooler_host loads 200
    host 60 spooler_host uninstall
    stage_end "the spooler as it is"
}

malformed_entries() {
    registry "$our_ports\\no server" /v 'Port Number' /t REG_DWORD /d 9100
    registry "$our_ports\\no number" /v 'Print Server' /d localhost
    registry "$our_ports\\empty"
    registry "$our_ports\\number as text" /v 'Print Server' /d localhost
    registry "$our_ports\\number as text" /v 'Port Number' /d 9100
    registry "$our_ports\\long server" /v 'Print Server' /d "$(printf 's%.0s' {1..60})"
    registry "$our_ports\\long server" /v 'Port Number' /t REG_DWORD /d 9100
    registry "$our_ports\\$(printf 'n%.0s' {1..70})" /v 'Print Server' /d localhost
    registry "$our_ports\\$(printf 'n%.0s' {1..70})" /v 'Port Number' /t REG_DWORD /d 9100
}

check_with_registry() {
    local log=$WINEPREFIX/drive_c/windows/temp/Farlink.log
    [[ -d ${log%/*} ]] || log=$WINEPREFIX/drive_c/windows/Temp/Farlink.log
    export FARLINK_MONITOR=$library
    host 60 spooler_host install "$shim"
    host 120 spooler_host ports
    check "no log is written unless it is asked for" test ! -e "$log"
    malformed_entries
    registry "$our_ports" /v LogToFile /t REG_DWORD /d 1
    stop_wine
    host 60 spooler_host restarted
    check "the log settings are read" grep -q 'gInitializePrintMonitor2\|krelPortMonitor' "$log"
    head -c 100000 /dev/urandom >"$folder/document"
    serve printed --documents 1
    host 120 spooler_host print "$port" "$(windows_path "$folder/document")"
    check "the print server has the document's bytes" cmp "$folder/document" "$folder/printed/document-0001.bin"
    check "the log tells of the document" grep -q 'krelIniPort::startDocPort' "$log"
    host 180 spooler_host loads 200
    host 60 spooler_host uninstall
    stage_end "the spooler with a registry"
}

check_direct() {
    local finishing cancelling never
    serve finishing; finishing=$port
    serve cancelling --end cancelled --printing 0.2; cancelling=$port
    serve never --end never; never=$port
    host 120 direct_host jobs "$library" "$finishing" "$cancelling" "$never"
    host 60 direct_host identity "$library"
    host 60 direct_host unload "$library"
    host 120 direct_host rounds "$library" "$never" 40
    host 30 direct_host leave "$library" "$never"
    host 60 direct_host table "$library" 160
    host 60 direct_host_2000 table "$library" 148
    check "version 5.0 logs to c:\\" test -s "$WINEPREFIX/drive_c/Farlink.log"
    stage_end "the library by itself"
}

# test_results WHAT OUTPUT STATUS : of a test binary, which has to come to its end.
test_results() {
    local what=$1 output=$2 status=$3 count
    sed -nE 's/^\[ +OK +\] ([^ ]+).*/ok \1/p; s/^\[ +FAILED +\] ([^ ,]+).* \([0-9]+ ms\)$/FAILED \1/p' \
        "$output" >"$folder/tests.results"
    grep '^FAILED' "$folder/tests.results" &&
        grep -A 6 'Failure$' "$output" | head -n 60
    cat "$folder/tests.results" >>"$results"
    count=$(sed -nE 's/^\[=+\] ([0-9]+) tests? from .* ran\..*/\1/p' "$output")
    [[ -n $count && $status -le 1 ]] || failed "$what ended with status $status, in or after $(
        sed -nE 's/^\[ RUN +\] //p' "$output" | tail -n 1)"
}

# The monitor's tests, in as many parts at once as there are processors, and the log reader's.
check_tests() {
    local parts part status tests=()
    parts=$(nproc)
    for ((part = 0; part < parts; ++part)); do
        (cd "$build" && GTEST_TOTAL_SHARDS=$parts GTEST_SHARD_INDEX=$part run 900 ./farlink_tests.exe) \
            >"$folder/tests.$part" &
        tests+=($!)
    done
    for ((part = 0; part < parts; ++part)); do
        status=0
        wait "${tests[part]}" || status=$?
        test_results "part $part of farlink_tests.exe" "$folder/tests.$part" "$status"
    done
    status=0
    (cd "$build" && run 120 ./log_reader_tests.exe) >"$folder/tests.log_reader" || status=$?
    test_results log_reader_tests.exe "$folder/tests.log_reader" "$status"
    stage_end "the tests"
}

# The same scenario's log lines, answers and registry, on both builds.
check_layers() {
    local filter='--gtest_filter=Layers.*'
    FARLINK_TRANSCRIPT=$folder/here.txt timeout 120 "$(dirname -- "$simulator")/farlink_tests" "$filter" >/dev/null
    (cd "$build" && FARLINK_TRANSCRIPT=$(windows_path "$folder/there.txt") run 120 ./farlink_tests.exe "$filter") >/dev/null
    check "a transcript is made" test -s "$folder/here.txt"
    check "both builds tell the same scenario alike" diff "$folder/here.txt" "$folder/there.txt"
    stage_end "both builds compared"
}

[[ $# -eq 2 && -e $build/Farlink.dll && -x $simulator ]] || {
    printf 'Usage: check.sh BUILD_FOLDER PATH_OF_A_NATIVE_FARLINK\n' >&2
    exit 2
}
SECONDS=0
check_files
prepare
check_unaided
check_with_registry
check_direct
# shellcheck source=tests/windows/farlink_check.sh
source "$(dirname -- "${BASH_SOURCE[0]}")/farlink_check.sh"
check_tool
check_tests
check_layers

bad=$(grep -c '^FAILED ' "$results")
printf '%d passed, %d failed\n' "$(grep -c '^ok ' "$results")" "$bad"
[[ $bad -eq 0 && -s $results ]]
