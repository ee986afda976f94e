# A cupsd of the test's own, reached by a socket in the test's folder, with our backend and its libraries in its
# program folder; and print servers to print to. For 'source'; wants $build, the folder of the built files.

command -v lp >/dev/null && [[ -x /usr/sbin/cupsd ]] || { printf 'Skipped: there is no CUPS here.\n'; exit 77; }

# As another user than root cupsd and the backend run as that user.
spooler_user=$([[ $EUID -eq 0 ]] && printf lp || id -un)
spooler_group=$([[ $EUID -eq 0 ]] && printf lp || id -gn)

folder=$(mktemp -d /tmp/farlink-cups.XXXXXX)
root=$folder/cups
backend=$root/bin/backend/farlink
farlink=$build/farlink
cupsd=
declare -A servers=() ports=()
trap 'clean_up $?' EXIT

clean_up() {
    trap - EXIT
    set +e
    [[ $1 -eq 0 ]] || { grep -aE "Job [0-9]+\]" "$root/log/error_log" | grep -avE "envp|keep-alive" | tail -n 60; tail -n 30  "$folder"/*.out; } >&2 || true
    # Without cupsd the backends end by themselves.
    kill -KILL "${servers[@]}" $cupsd 2>/dev/null
    wait 2>/dev/null
    rm -rf -- "$folder"
    exit "$1"
}

fail() {
    printf 'FAILED (line %s): %s\n' "${BASH_LINENO[*]}" "$1" >&2
    exit 1
}

# Waits until a command succeeds: two minutes, which only a failing test needs.
await() {
    local end=$((SECONDS + 120))
    until "$@" >"$folder/awaited.out" 2>&1; do
        [[ $SECONDS -lt $end ]] || fail "waited in vain for: $*"
        sleep 0.05
    done
}

# True when lpstat says so of a queue.
tells() { # QUEUE PATTERN
    grep -q "$2" <<<"$(lpstat -l -p "$1")"
}

# --- cupsd ---------------------------------------------------------------------------------------------

make_cups() {
    mkdir -p "$root"/{etc/ppd,etc/ssl,bin/backend,bin/daemon,spool/tmp,cache,run,log}
    ln -s /usr/lib/cups/daemon/* "$root/bin/daemon/"
    # Copies: the account of the spooler needn't be able to read the build folder.
    install -m 0755 "$build/backend/farlink" "$root/bin/backend/"
    install -m 0755 "$build"/{Farlink.dll,libspoolss.so,libplatform.so} "$root/bin/"
    chmod 0755 "$folder" "$root"
    chown -R "$spooler_user:$spooler_group" "$root"/{spool,cache,log,run} "$root/etc/ppd"
    : >"$root/etc/printcap"
    cat >"$root/etc/cups-files.conf" <<END
ServerRoot $root/etc
ServerBin $root/bin
DataDir /usr/share/cups
RequestRoot $root/spool
TempDir $root/spool/tmp
CacheDir $root/cache
StateDir $root/run
AccessLog $root/log/access_log
ErrorLog $root/log/error_log
PageLog $root/log/page_log
Printcap $root/etc/printcap
SystemGroup $(id -gn)
User $spooler_user
Group $spooler_group
Sandboxing Relaxed
END
    cat >"$root/etc/cupsd.conf" <<END
Listen $root/run/cups.sock
Browsing No
WebInterface No
DefaultAuthType None
LogLevel debug
MaxLogSize 0
JobRetryInterval 1
DirtyCleanInterval 0
<Location />
  Order allow,deny
  Allow all
</Location>
<Location /admin>
  Order allow,deny
  Allow all
</Location>
<Policy default>
  JobPrivateAccess default
  JobPrivateValues default
  <Limit All>
    Order deny,allow
    Allow all
  </Limit>
</Policy>
END
    export CUPS_SERVER=$root/run/cups.sock
    start_cups
}

start_cups() {
    /usr/sbin/cupsd -f -c "$root/etc/cupsd.conf" -s "$root/etc/cups-files.conf" >>"$folder/cupsd.out" 2>&1 &
    cupsd=$!
    await cups_runs
}
cups_runs() { lpstat -r | grep -q 'is running'; }

# add_queue NAME SERVER [OPTIONS_OF_THE_URI]
add_queue() {
    lpadmin -p "$1" -E -v "farlink://127.0.0.1:${ports[$2]}/${3-}" -P "$(dirname "${BASH_SOURCE[0]}")/../../cups/farlink-raw.ppd" \
        2>"$folder/lpadmin.out" || fail "there is no queue $1"
}

# print QUEUE FILE [OPTIONS_OF_LP...]: gives the job's name in $job, and its number in $number.
print() {
    job=$(lp -d "$1" "${@:3}" "$2" | sed -nE 's/^request id is ([^ ]+) .*/\1/p')
    [[ -n $job ]] || fail "lp refused $2"
    number=${job##*-}
}

is_done() { lpstat -W completed -o | grep -q "^$1 "; }
job_lines() { lpstat -l -o | sed -n "/^$1 /,/queued for/p"; }
is_held() { job_lines "$1" | grep -q 'job-hold-until-specified'; }
is_done_or_held() { is_done "$1" || is_held "$1"; }
shows() { job_lines "$1" | grep -q "Status: .*$2"; }
# The same, at some time since the beginning.
said() { grep -aqE "\[Job ${1##*-}\] .*$2" "$root/log/error_log"; }
# cupsd's own word of a job, "completed" or "canceled at printer".
ended() { grep -aqE "\[Job ${1##*-}\] Job $2" "$root/log/error_log"; }
all_done() { [[ -z $(lpstat -o) ]]; }
no_backend() { ! pgrep -P "$cupsd" >/dev/null; }

# --- print servers and documents --------------------------------------------------------------------------

# start_server NAME [OPTIONS...]: again on the port that the name had before.
start_server() {
    rm -f "$folder/$1.out"  # the server before has said that it listens
    "$farlink" printserver --listen "${ports[$1]:-0}" --out "$folder/$1.cards" "${@:2}" >"$folder/$1.out" 2>&1 &
    servers[$1]=$!
    await server_says "$1" '^Listening'
    ports[$1]=$(sed -nE 's/^Listening.* port ([0-9]+) .*/\1/p' "$folder/$1.out")
}
kill_server() {
    kill -KILL "${servers[$1]}"
    wait "${servers[$1]}" 2>/dev/null || true
    unset "servers[$1]"
}
server_says() { grep -qs "$2" "$folder/$1.out"; }

make_document() { head -c "$2" /dev/urandom >"$1"; }
# How often the document came out whole, at whatever print server.
copies() {
    local sum
    sum=$(sha256sum <"$1")
    sha256sum "$folder"/*.cards/*.bin 2>/dev/null | grep -c "^${sum%% *}" || true
}
has_copies() { [[ $(copies "$2") -eq $1 ]]; }
