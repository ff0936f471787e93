#!/usr/bin/env bash
# The shared plane on the embedded store and on a 3-member etcd cluster
# (scripts/etcd-cluster) side by side, with etcdctl doing the same work on
# the same cluster in the same run:
#
#   sets     S sets, each its own committed request (a command file)
#            etcdctl: S puts, one etcdctl process each (P of them, timed and
#            scaled to S: a process start per put dominates them)
#   bulk     N creates in one bulk (startbulk, the creates, endbulk)
#            etcdctl: N puts through one "etcdctl txn" per 120 keys
#   datalist one datalist -chunk 1000 of the N items of one directory
#            etcdctl: get --prefix of the same N keys
#
#   bench/etcd_bench.sh [-n N] [-s S] [-p P] [BUILD]
#
# Defaults: N 100000, S 10000, P 500; BUILD holds exec/tarvocon.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
n=100000 s=10000 p=500
while getopts "n:s:p:" opt; do
    case $opt in
    n) n=$OPTARG ;;
    s) s=$OPTARG ;;
    p) p=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
build=${1:-$root/build/test}
console="$build/exec/tarvocon"

work=$(mktemp -d "${TMPDIR:-/tmp}/etcd_bench.XXXXXX")
export TARVO_ETCD_DIR=$work/cluster
trap '"$root/scripts/etcd-cluster" stop; rm -rf "$work"' EXIT
location=$("$root/scripts/etcd-cluster" start 3)
endpoints=${location#etcd://}
export ETCDCTL_API=3

now() { date +%s.%N; }
since() { echo "$(now) - $1" | bc; }

# Command files: S sets, N creates in a bulk, a datalist.
{
    echo /
    echo "create /b/s uint32 0"
    for i in $(seq "$s"); do echo "set /b/s uint32 $i"; done
} >"$work/sets.cmd"
{
    echo /
    echo startbulk
    for i in $(seq "$n"); do printf 'create /b/big/k%06d uint32 %d\n' "$i" "$i"; done
    echo endbulk
} >"$work/bulk.cmd"
printf '/b/big/\ndatalist -chunk 1000\n' >"$work/list.cmd"

run_console() { # store file
    local t
    t=$(now)
    TARVO_SHARED_STORE=$1 TARVO_DATA_DIR=$work/data HOME=$work "$console" -f "$2" >"$work/out" 2>&1
    since "$t"
}

printf '%-9s %12s %12s %12s\n' "" "embedded s" "etcd s" "etcdctl s"
declare -A took
for store in sqlite "$location/bench"; do
    rm -rf "$work/data"
    took[$store,sets]=$(run_console "$store" "$work/sets.cmd")
    took[$store,bulk]=$(run_console "$store" "$work/bulk.cmd")
    took[$store,list]=$(run_console "$store" "$work/list.cmd")
    grep -c "'k[0-9]" "$work/out" | grep -qx "$n" || echo "datalist on $store did not list $n items" >&2
done

t=$(now)
for i in $(seq "$p"); do etcdctl --endpoints="$endpoints" put ref/s "$i" >/dev/null; done
ctl_sets=$(echo "$(since "$t") * $s / $p" | bc)
t=$(now)
for start in $(seq 1 120 "$n"); do
    # etcdctl txn reads the compares, the success and the failure requests,
    # each list ended by an empty line.
    {
        echo
        for i in $(seq "$start" $((start + 119 > n ? n : start + 119))); do
            printf 'put ref/big/k%06d %d\n' "$i" "$i"
        done
        printf '\n\n'
    } | etcdctl --endpoints="$endpoints" txn >/dev/null
done
ctl_bulk=$(since "$t")
t=$(now)
etcdctl --endpoints="$endpoints" get --prefix ref/big/ | grep -c "^ref/big/" >"$work/count"
ctl_list=$(since "$t")

for what in sets bulk list; do
    ctl=ctl_$what
    printf '%-9s %12.2f %12.2f %12.2f\n' "$what" "${took[sqlite,$what]}" \
        "${took[$location/bench,$what]}" "${!ctl}"
done
echo "etcdctl listed $(cat "$work/count") keys"
