#!/usr/bin/env bash
# Installs the Debian package and uses it as the README tells, in a root of its own: an overlay over this machine's,
# gone at the end, with processes and a network of its own. Usage, as root: installed.sh PACKAGE README
set -euo pipefail

fail() { printf 'FAILED (line %s): %s\n' "${BASH_LINENO[*]}" "$1" >&2; exit 1; }

# Waits until a command succeeds: a minute, which only a failing test needs.
await() {
    local end=$((SECONDS + 60))
    until "$@" >/dev/null 2>&1; do
        [[ $SECONDS -lt $end ]] || fail "waited in vain for: $*"
        sleep 0.1
    done
}

enter_own_root() { # PACKAGE README
    mount -t tmpfs farlink /mnt
    mkdir /mnt/{upper,work,root}
    mount -t overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work farlink /mnt/root
    mount --rbind /dev /mnt/root/dev
    mount -t proc proc /mnt/root/proc
    mount -t tmpfs farlink /mnt/root/run
    mkdir /mnt/root/farlink
    cp "$1" "$2" "$0" /mnt/root/farlink
    ip link set lo up
    # The README's print server is a name.
    cp --remove-destination /etc/hosts /mnt/root/etc/hosts
    printf '127.0.0.1 card-server\n' >>/mnt/root/etc/hosts
    exec chroot /mnt/root env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 STAGE=inside \
        DEBIAN_FRONTEND=noninteractive bash "/farlink/${0##*/}"
}

start_server() { # FOLDER PORT [OPTIONS...]
    farlink printserver --listen "$2" --out "$1" "${@:3}" >"$1.out" &
    await grep -q '^Listening' "$1.out"
}

# A command of the README, word for word.
readme_command() { # PATTERN
    local line
    line=$(sed -n '/^```/,/^```/p' README.md | grep -m 1 -e "$1") || fail "the README has no '$1'"
    printf '$ %s\n' "$line"
    eval "$line"
}
sudo() { "$@"; }

is_done() { lpstat -W completed -o | grep -q "^$1 "; }
are_printing() { [[ $(grep -c 'receiving a document' "$2.out") -ge $1 ]]; }
have_come_out() { find "$1" -type f -print0 | xargs -0 -n 1 cmp badge.prn; }

check_completion() {
    local words='source /usr/share/bash-completion/completions/farlink; COMP_WORDS=(farlink pri); COMP_CWORD=1
        _farlink farlink pri farlink; printf "%s\n" "${COMPREPLY[@]}"'
    [[ $(bash -c "$words") == print$'\n'* ]] || fail "bash completes nothing"
    [[ $(fish -c 'complete -C "farlink pri"') == print* ]] || fail "fish completes nothing"
    [[ $(zsh -fc 'autoload -U compinit; compinit -D -u; print $_comps[farlink]') == _farlink ]] ||
        fail "zsh knows nothing"
}

use_package() {
    cd /farlink
    rm -f /etc/dpkg/dpkg.cfg.d/*  # a container's image may leave man pages out
    mkdir -p /run/cups
    cupsd
    await lpstat -r
    { printf 'CARD'; head -c 300000 /dev/urandom; } >badge.prn

    readme_command 'apt install'
    farlink --version
    start_server cups-cards 9100 --queue 1
    readme_command 'lpadmin'
    readme_command '^lp '
    await is_done front-desk-1
    have_come_out cups-cards || fail "CUPS printed other bytes"

    # An upgrade in the middle of two documents: what runs keeps the files that it began with.
    start_server cards 9200 --rate 30000
    farlink port add desk --server card-server --port 9200
    lpadmin -p back-desk -E -v farlink://card-server:9200/ -P /usr/share/cups/model/farlink-raw.ppd
    farlink print --to desk badge.prn >print.out &
    local printing=$!
    await are_printing 1 cards
    lp -d back-desk badge.prn
    await are_printing 2 cards
    dpkg --install farlink_*.deb >upgrade.out || fail "the upgrade failed"
    ! is_done back-desk-2 || fail "the upgrade came too late to show anything"
    wait "$printing" || fail "the upgrade broke the document of farlink print"
    await is_done back-desk-2
    [[ $(find cards -type f | wc -l) -eq 2 ]] || fail "not two cards came out"
    have_come_out cards || fail "other bytes were printed"

    [[ $(man farlink) == *printserver* ]] || fail "the man page doesn't render"
    check_completion
    mkdir -p /elsewhere/{bin,lib}
    cp -a /usr/bin/farlink /elsewhere/bin
    cp -a /usr/lib/farlink /elsewhere/lib
    apt-get remove -qq farlink >remove.out 2>&1
    [[ -z $(find /usr -name 'farlink*' -o -name _farlink) ]] || fail "the removal left files"
    /elsewhere/bin/farlink port list | grep -q '^desk' || fail "a moved tree doesn't work, or the state is gone"
    printf 'Installed, used, upgraded, moved, removed: all well.\n'
}

case ${STAGE-} in
    inside) use_package ;;
    own) enter_own_root "$@" ;;
    *)
        [[ $EUID -eq 0 ]] || fail "only root can make a root of its own"
        STAGE=own exec unshare --mount --net --pid --fork --kill-child bash "$0" "$@"
        ;;
esac
