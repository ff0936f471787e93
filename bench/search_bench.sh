#!/usr/bin/env bash
# Search benchmarks of the console, each beside the sqlite3 shell doing the
# same work on an equivalent table (path, datatype, value) in the same run:
#
#   find       find i[0-9]*5 -regexp over N items (a tenth match), in batches
#              at the prompt, yes to every "more" question (a chunked find
#              takes no access options, so it cannot use a pattern)
#              shell: the same rows, REGEXP '^i[0-9]*5$' on the relative path
#   iterate    iterate -datatype string over N items (a tenth are strings)
#              shell: the same rows with datatype=3
#   datalist   datalist of the N-item directory in batches, as find
#              shell: the ordered select of path, datatype, hex(value)
#
# The items are loaded untimed (one bulk ended atomically; the shell in one
# transaction). Printed per line: wall time and peak resident memory of
# each side (medians of RUNS runs) and the ratio of the wall times.
#
#   bench/search_bench.sh [-r RUNS] [BUILD] [SIZES...]
#
# Defaults: RUNS 3, sizes 10000 1000000; BUILD is a build directory holding
# exec/tarvocon (built in build/bench when not given or "-").
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
runs=3
while getopts "r:" opt; do
    case $opt in
    r) runs=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
build=${1:--}
shift || true
sizes=("$@")
if [ ${#sizes[@]} -eq 0 ]; then sizes=(10000 1000000); fi

for tool in sqlite3 /usr/bin/time bc; do
    command -v "$tool" >/dev/null || { echo "search_bench: $tool is missing" >&2; exit 1; }
done
if [ "$build" = "-" ]; then
    build="$root/build/bench"
    if [ ! -f "$build/build.ninja" ]; then
        cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DTARVO_TESTS=OFF \
            -DTARVOCON_CLIENT_LIBRARY="$build/platform/tarvo/libtarvo.so" >&2
    fi
    cmake --build "$build" --target tarvocon -- -j2 >&2
fi
console="$build/exec/tarvocon"

work=$(mktemp -d "${TMPDIR:-/tmp}/search_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
export TARVO_DATA_DIR="$work/data"

# Runs a command with its output to a file; prints "seconds peak_kib".
measure() { # command...
    local start end
    start=$(date +%s%N)
    /usr/bin/time -f "%M" -o "$work/time" "$@" >"$work/out" 2>"$work/err"
    end=$(date +%s%N)
    echo "$(echo "($end - $start) / 1000000000" | bc -l) $(cat "$work/time")"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

compare() { # name n console-input shell-sql
    local name=$1 n=$2 input=$3 sql=$4 i
    : >"$work/mine"
    : >"$work/ref"
    for ((i = 0; i < runs; i++)); do
        measure "$console" <"$input" >>"$work/mine"
        if grep -q "error occurred" "$work/err"; then
            echo "search_bench: $name: the console reported an error" >&2
            cat "$work/err" >&2
            exit 1
        fi
        local lines_mine
        lines_mine=$(grep -o "\[[a-z0-9]* *[(a-z0-9 )]*\] " "$work/out" | wc -l)
        measure sqlite3 "$work/ref.db" "$sql" >>"$work/ref"
        local lines_ref
        lines_ref=$(wc -l <"$work/out")
    done
    local ms mm rs rm
    ms=$(awk '{ print $1 }' "$work/mine" | median)
    mm=$(awk '{ print $2 }' "$work/mine" | median)
    rs=$(awk '{ print $1 }' "$work/ref" | median)
    rm=$(awk '{ print $2 }' "$work/ref" | median)
    printf '%-9s n=%-8s console %7.3f s %7d KiB %7s lines | shell %7.3f s %7d KiB %7s lines | ratio %.2f\n' \
        "$name" "$n" "$ms" "$mm" "$lines_mine" "$rs" "$rm" "$lines_ref" "$(echo "$ms / $rs" | bc -l)"
}

for n in "${sizes[@]}"; do
    rm -rf "$work/data" "$work"/ref.db*
    mkdir "$work/data"
    # Load: a tenth of the items are strings, the others uint32.
    awk -v n="$n" 'BEGIN {
        print "/"; print "startbulk -atomic"
        for (i = 0; i < n; i++)
            if (i % 10 == 3) printf "create /big/i%07d string s%d\n", i, i
            else printf "create /big/i%07d uint32 %d\n", i, i
        print "endbulk" }' >"$work/load.cmd"
    "$console" -f "$work/load.cmd" >/dev/null 2>"$work/err"
    awk -v n="$n" 'BEGIN {
        print "PRAGMA journal_mode=WAL;"; print "PRAGMA synchronous=NORMAL;"
        print "CREATE TABLE items(path TEXT PRIMARY KEY, datatype INTEGER, value BLOB) WITHOUT ROWID;"
        print "BEGIN;"
        for (i = 0; i < n; i++)
            if (i % 10 == 3) printf "INSERT INTO items VALUES(\x27/big/i%07d\x27, 3, CAST(\x27s%d\x27 AS BLOB));\n", i, i
            else printf "INSERT INTO items VALUES(\x27/big/i%07d\x27, 1, x\x27%08x\x27);\n", i, i
        print "COMMIT;" }' >"$work/ref.sql"
    sqlite3 "$work/ref.db" ".read $work/ref.sql" >/dev/null

    # The bind point, the command, a yes for every batch of 1000.
    prompt_input() { # command
        echo "big"
        echo "$1"
        awk -v k=$((n / 1000 + 1)) 'BEGIN { for (i = 0; i < k; i++) print "y" }'
        echo quit
    }
    prompt_input "find i[0-9]*5 -regexp" >"$work/find.in"
    compare find "$n" "$work/find.in" \
        "SELECT path, datatype FROM items WHERE path > '/big/' AND path < '/big0' AND substr(path, 6) REGEXP '^i[0-9]*5\$' ORDER BY path;"
    prompt_input "iterate -datatype string" >"$work/iterate.in"
    compare iterate "$n" "$work/iterate.in" \
        "SELECT path, datatype FROM items WHERE path > '/big/' AND path < '/big0' AND datatype = 3 ORDER BY path;"
    prompt_input "datalist" >"$work/datalist.in"
    compare datalist "$n" "$work/datalist.in" \
        "SELECT path, datatype, hex(value) FROM items WHERE path > '/big/' AND path < '/big0' ORDER BY path;"
done
