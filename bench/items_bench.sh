#!/usr/bin/env bash
# Item benchmarks of the console, with the sqlite3 shell on an equivalent
# table as a reference. Prints one line per measurement:
#
#   create      N items from a command file (one create per line)
#   datalist    a directory of N items written to a file, read in chunks of
#               1000 from a command file (-chunk 1000)
#   batches     the same directory in batches, answering yes to every
#               "more" question at the prompt
#   sqlite3     the same inserts and the same ordered read with the sqlite3
#               shell (WAL, synchronous=NORMAL, one statement per insert)
#
# with the wall time, the peak resident memory of the process and the lines
# written. Peak memory of the listings should not grow with N.
#
#   bench/items_bench.sh [CONSOLE] [SIZES...]     default sizes: 10000 100000
#
# Without CONSOLE the console is built in build/bench.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
console=${1:-}
shift || true
sizes=("$@")
if [ ${#sizes[@]} -eq 0 ]; then sizes=(10000 100000); fi

need() { # command package
    command -v "$1" >/dev/null 2>&1 && return 0
    if [ "$(id -u)" = 0 ]; then
        apt-get install -y -q "$2" >/dev/null 2>&1 || { apt-get update -q >/dev/null && apt-get install -y -q "$2" >/dev/null; }
    else
        echo "items_bench: $1 is missing (package $2)" >&2
        exit 1
    fi
}
need sqlite3 sqlite3
[ -x /usr/bin/time ] || need /usr/bin/time time

if [ -z "$console" ]; then
    build="$root/build/bench"
    if [ ! -f "$build/build.ninja" ]; then
        cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DTARVO_TESTS=OFF \
            -DTARVOCON_CLIENT_LIBRARY="$build/platform/tarvo/libtarvo.so" >&2
    fi
    cmake --build "$build" --target tarvocon >&2
    console="$build/exec/tarvocon"
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/items_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Runs a command; prints "seconds peak_kib" (wall time from the clock in
# nanoseconds, peak resident memory from GNU time).
measure() { # output-file command...
    local out=$1
    shift
    local start end
    start=$(date +%s%N)
    /usr/bin/time -f "%M" -o "$work/time" "$@" >"$out" 2>"$work/stderr"
    end=$(date +%s%N)
    echo "$(echo "($end - $start) / 1000000000" | bc -l) $(cat "$work/time")"
}

report() { # what n seconds peak_kib lines
    printf '%-9s n=%-7s %8.3f s %9.0f items/s  peak %7d KiB  %s lines\n' \
        "$1" "$2" "$3" "$(echo "$2 / ($3 + 0.0001)" | bc -l)" "$4" "$5"
}
need bc bc

for n in "${sizes[@]}"; do
    data="$work/data-$n"
    mkdir -p "$data"
    export TARVO_DATA_DIR="$data"

    # create
    {
        echo "/"
        for ((i = 0; i < n; i++)); do printf 'create /big/i%07d uint32 %d\n' "$i" "$i"; done
    } >"$work/create.cmd"
    read -r secs peak < <(measure "$work/create.out" "$console" -f "$work/create.cmd")
    created=$(grep -c "successfully created" "$work/create.out" || true)
    report create "$n" "$secs" "$peak" "$created"

    # datalist in chunks, from a command file
    printf '/\ndatalist /big/ -chunk 1000\n' >"$work/list.cmd"
    read -r secs peak < <(measure "$work/list.out" "$console" -f "$work/list.cmd")
    report datalist "$n" "$secs" "$peak" "$(grep -c '^\[uint32' "$work/list.out" || true)"

    # datalist in batches, interactively, yes to every question
    {
        echo "big"
        echo "datalist"
        for ((i = 0; i <= n / 1000; i++)); do echo y; done # one per batch of 1000
        echo quit
    } >"$work/batches.in"
    read -r secs peak < <(measure "$work/batches.out" "$console" <"$work/batches.in")
    report batches "$n" "$secs" "$peak" "$(grep -o "\[uint32 (len 4)\]" "$work/batches.out" | wc -l)"

    # the sqlite3 shell on an equivalent table
    db="$work/ref-$n.db"
    {
        echo "PRAGMA journal_mode=WAL;"
        echo "PRAGMA synchronous=NORMAL;"
        echo "CREATE TABLE items(path TEXT PRIMARY KEY, datatype INTEGER, value BLOB) WITHOUT ROWID;"
        for ((i = 0; i < n; i++)); do
            printf "INSERT INTO items VALUES('/big/i%07d', 1, x'%08x');\n" "$i" "$i"
        done
    } >"$work/ref.sql"
    read -r secs peak < <(measure "$work/ref.out" sqlite3 "$db" ".read $work/ref.sql")
    report sqlite3-i "$n" "$secs" "$peak" "$(sqlite3 "$db" 'SELECT count(*) FROM items;')"
    read -r secs peak < <(measure "$work/ref-list.out" sqlite3 "$db" \
        "SELECT path, datatype, hex(value) FROM items WHERE path >= '/big/' AND path < '/big0' ORDER BY path;")
    report sqlite3-r "$n" "$secs" "$peak" "$(wc -l <"$work/ref-list.out")"
done
