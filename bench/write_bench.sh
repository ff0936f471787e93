#!/usr/bin/env bash
# Write benchmarks of the console, each beside the sqlite3 shell doing the
# same work on an equivalent table in the same run:
#
#   creates    N creates from a command file, one request each
#              shell: N one-statement inserts, each its own transaction
#   bulk       N creates in one bulk ended atomically (startbulk -atomic,
#              the creates, endbulk)
#              shell: the same inserts in one transaction
#   sets       S sets of existing items from a command file
#              shell: S one-statement updates
#   trans-sets S sets, each in its own committed transaction (starttrans,
#              set, committrans)
#              shell: S times BEGIN, one update, COMMIT
#
# Both sides run in turn, RUNS times; printed are the medians of the wall
# time and of the CPU time (user and system) and their ratios to the shell.
# On a busy machine the CPU ratio is the steadier figure.
#
#   bench/write_bench.sh [-n N] [-s S] [-r RUNS] [BUILD]
#
# Defaults: N 100000, S 10000, RUNS 3; BUILD is a build directory holding
# exec/tarvocon (built in build/bench when not given).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
n=100000
s=10000
runs=3
while getopts "n:s:r:" opt; do
    case $opt in
    n) n=$OPTARG ;;
    s) s=$OPTARG ;;
    r) runs=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
build=${1:-}

for tool in sqlite3 /usr/bin/time bc; do
    command -v "$tool" >/dev/null || { echo "write_bench: $tool is missing" >&2; exit 1; }
done
if [ -z "$build" ]; then
    build="$root/build/bench"
    if [ ! -f "$build/build.ninja" ]; then
        cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DTARVO_TESTS=OFF \
            -DTARVOCON_CLIENT_LIBRARY="$build/platform/tarvo/libtarvo.so" >&2
    fi
    cmake --build "$build" --target tarvocon >&2
fi
console="$build/exec/tarvocon"

work=$(mktemp -d "${TMPDIR:-/tmp}/write_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Runs a command on a fresh data directory after an untimed preparation;
# prints "wall cpu".
timed() { # prepare-command command...
    local prepare=$1
    shift
    rm -rf "$work/data" "$work"/ref.db*
    mkdir "$work/data"
    eval "$prepare" >/dev/null 2>&1
    /usr/bin/time -f "%e %U %S" -o "$work/time" "$@" >"$work/out" 2>"$work/err"
    awk '{ printf "%s %.3f\n", $1, $2 + $3 }' "$work/time"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Runs both sides RUNS times in turn and prints one line.
compare() { # name count console-prepare console-command shell-prepare shell-command
    local name=$1 count=$2 cprep=$3 ccmd=$4 sprep=$5 scmd=$6
    : >"$work/mine"
    : >"$work/ref"
    for ((i = 0; i < runs; i++)); do
        timed "$cprep" bash -c "$ccmd" >>"$work/mine"
        if grep -q "error occurred" "$work/err"; then
            echo "write_bench: $name: a request failed:" >&2
            head -3 "$work/err" >&2
            exit 1
        fi
        timed "$sprep" bash -c "$scmd" >>"$work/ref"
    done
    local mw mc rw rc
    mw=$(awk '{ print $1 }' "$work/mine" | median)
    mc=$(awk '{ print $2 }' "$work/mine" | median)
    rw=$(awk '{ print $1 }' "$work/ref" | median)
    rc=$(awk '{ print $2 }' "$work/ref" | median)
    printf '%-22s n=%-7s wall %7.2f s / shell %7.2f s = %5.2fx   cpu %7.2f s / shell %7.2f s = %5.2fx\n' \
        "$name" "$count" "$mw" "$rw" "$(echo "$mw / $rw" | bc -l)" "$mc" "$rc" "$(echo "$mc / $rc" | bc -l)"
}

export TARVO_DATA_DIR="$work/data"
items() { # count: lines "create /big/i<k> uint32 <k>"
    for ((k = 0; k < $1; k++)); do printf 'create /big/i%07d uint32 %d\n' "$k" "$k"; done
}
inserts() { # count
    for ((k = 0; k < $1; k++)); do
        printf "INSERT INTO items VALUES('/big/i%07d', 1, x'%08x');\n" "$k" "$k"
    done
}
schema="PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;
CREATE TABLE items(path TEXT PRIMARY KEY, datatype INTEGER, value BLOB) WITHOUT ROWID;"

{ echo /; items "$n"; } >"$work/creates.cmd"
{ echo /; echo "startbulk -atomic"; items "$n"; echo endbulk; } >"$work/bulk.cmd"
{ echo /; items "$s"; } >"$work/setup.cmd"
{ echo /; for ((k = 0; k < s; k++)); do printf 'set /big/i%07d uint32 %d\n' "$k" $((k + 1)); done; } >"$work/sets.cmd"
{
    echo /
    for ((k = 0; k < s; k++)); do
        printf 'starttrans\nset /big/i%07d uint32 %d\ncommittrans\n' "$k" $((k + 1))
    done
} >"$work/trans-sets.cmd"
{ echo "$schema"; inserts "$n"; } >"$work/creates.sql"
{ echo "$schema"; echo "BEGIN;"; inserts "$n"; echo "COMMIT;"; } >"$work/bulk.sql"
{ echo "$schema"; inserts "$s"; } >"$work/setup.sql"
for ((k = 0; k < s; k++)); do
    printf "UPDATE items SET value=x'%08x' WHERE path='/big/i%07d';\n" $((k + 1)) "$k"
done >"$work/updates.sql"
# synchronous is not kept in the file: each session sets it.
{ echo "PRAGMA synchronous=NORMAL;"; cat "$work/updates.sql"; } >"$work/sets.sql"
{ echo "PRAGMA synchronous=NORMAL;"; sed 's/^/BEGIN; /; s/$/ COMMIT;/' "$work/updates.sql"; } \
    >"$work/trans-sets.sql"

compare creates "$n" : "'$console' -f '$work/creates.cmd'" \
    : "sqlite3 '$work/ref.db' '.read $work/creates.sql'"
compare bulk "$n" : "'$console' -f '$work/bulk.cmd'" \
    : "sqlite3 '$work/ref.db' '.read $work/bulk.sql'"
compare sets "$s" "'$console' -f '$work/setup.cmd' >/dev/null" "'$console' -f '$work/sets.cmd'" \
    "sqlite3 '$work/ref.db' '.read $work/setup.sql'" "sqlite3 '$work/ref.db' '.read $work/sets.sql'"
compare trans-sets "$s" "'$console' -f '$work/setup.cmd' >/dev/null" \
    "'$console' -f '$work/trans-sets.cmd'" \
    "sqlite3 '$work/ref.db' '.read $work/setup.sql'" \
    "sqlite3 '$work/ref.db' '.read $work/trans-sets.sql'"
