#!/usr/bin/env bash
# Two consoles on a 3-member etcd cluster (scripts/etcd-cluster), each bound
# through a different member first: each sees the other's changes, both go
# on working once the first member is killed, and a write lock held by a
# console killed with SIGKILL disappears from etcd when its lease ends.
#   members.sh SOURCE_ROOT CONSOLE
set -euo pipefail
root=$1 console=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/tarvo-members.XXXXXX")
export TARVO_ETCD_DIR=$work/cluster
holder=
cleanup() {
    [ -n "$holder" ] && kill -9 "$holder" 2>/dev/null
    "$root/scripts/etcd-cluster" stop
    rm -rf "$work"
}
trap cleanup EXIT
location=$("$root/scripts/etcd-cluster" start 3)
IFS=, read -r e1 e2 e3 <<<"${location#etcd://}"
prefix=members-$$
a="etcd://$e1,$e2,$e3/$prefix"
b="etcd://$e2,$e3,$e1/$prefix"
mkdir -p "$work/a" "$work/b"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# run A|B COMMAND...: one command file through that console's member.
run() {
    local who=$1 store
    shift
    store=$a
    [ "$who" = B ] && store=$b
    printf '/\n' >"$work/$who.cmd"
    printf '%s\n' "$@" >>"$work/$who.cmd"
    TARVO_SHARED_STORE=$store TARVO_DATA_DIR=$work/${who,,} HOME=$work \
        "$console" -f "$work/$who.cmd" 2>&1
}

expect() {  # expect A|B PATTERN COMMAND...
    local who=$1 pattern=$2 out
    shift 2
    out=$(run "$who" "$@")
    grep -q -- "$pattern" <<<"$out" || fail "$who: '$*' printed no '$pattern':"$'\n'"$out"
}

expect A "successfully created" "create /cfg/x uint32 1"
expect B "x' *1 (" "get /cfg/x"
expect B "successfully modified" "set /cfg/x uint32 2"
expect A "x' *2 (" "get /cfg/x"

"$root/scripts/etcd-cluster" kill 1
expect A "successfully modified" "set /cfg/x uint32 3"
expect B "x' *3 (" "get /cfg/x"
expect B "successfully created" "create /cfg/y uint32 4"
expect A "y' *4 (" "get /cfg/y"

# A console that holds a write lock and then dies without a word.
lock_keys() {
    ETCDCTL_API=3 etcdctl --endpoints="$e2,$e3" get --prefix "$prefix|r1/" --keys-only |
        grep -c "^$prefix|r1/" || true
}
mkfifo "$work/feed"
TARVO_SHARED_STORE=$a TARVO_DATA_DIR=$work/a HOME=$work \
    "$console" <"$work/feed" >"$work/holder.out" 2>&1 &
holder=$!
exec 3>"$work/feed"
printf '\n' >&3
sleep 1
printf 'wrlock /cfg/x\n' >&3
for _ in $(seq 100); do
    [ "$(lock_keys)" = 1 ] && break
    sleep 0.1
done
[ "$(lock_keys)" = 1 ] || fail "the lock of the holding console is not in etcd: $(cat "$work/holder.out")"
kill -9 "$holder"
wait "$holder" 2>/dev/null || true
holder=
exec 3>&-
killed=$(date +%s)
while [ "$(lock_keys)" != 0 ]; do
    [ $(($(date +%s) - killed)) -le 20 ] || fail "the dead console's lock outlived its lease"
    sleep 0.5
done
echo "lock released $(($(date +%s) - killed)) s after its holder died"
expect B "Write lock acquired successfully" "wrlock /cfg/x"
echo "members: 1 passed, 0 failed"
