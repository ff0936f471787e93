#!/usr/bin/env bash
# Saved-tree benchmarks of the console, each beside the sqlite3 shell doing
# the same work on an equivalent one-table database in the same run:
#
#   save     filesave of a directory of N uint32 items (current layout)
#            shell: .dump of the N rows to a file
#   restore  filerestore of that file into an empty store
#            shell: .read of that dump into an empty database
#
# Both sides run in turn, RUNS times; printed are the medians of the wall
# time and of the CPU time (user and system), their ratios to the shell,
# and the sizes of the file and the dump.
#
#   bench/files_bench.sh [-n N] [-r RUNS] [BUILD]
#
# Defaults: N 100000, RUNS 3; BUILD is a build directory holding
# exec/tarvocon (built in build/bench when not given).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
n=100000
runs=3
while getopts "n:r:" opt; do
    case $opt in
    n) n=$OPTARG ;;
    r) runs=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
build=${1:-}

for tool in sqlite3 /usr/bin/time bc; do
    command -v "$tool" >/dev/null || { echo "files_bench: $tool is missing" >&2; exit 1; }
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

work=$(mktemp -d "${TMPDIR:-/tmp}/files_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
export TARVO_DATA_DIR="$work/data"

# Runs a command after an untimed preparation; prints "wall cpu".
timed() { # prepare-command command...
    local prepare=$1
    shift
    eval "$prepare" >/dev/null 2>&1
    /usr/bin/time -f "%e %U %S" -o "$work/time" "$@" >"$work/out" 2>"$work/err"
    if grep -q "error occurred" "$work/err"; then
        echo "files_bench: a request failed:" >&2
        head -3 "$work/err" >&2
        exit 1
    fi
    awk '{ printf "%s %.3f\n", $1, $2 + $3 }' "$work/time"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

compare() { # name console-prepare console-command shell-prepare shell-command
    local name=$1 cprep=$2 ccmd=$3 sprep=$4 scmd=$5
    : >"$work/mine"
    : >"$work/ref"
    for ((i = 0; i < runs; i++)); do
        timed "$cprep" bash -c "$ccmd" >>"$work/mine"
        timed "$sprep" bash -c "$scmd" >>"$work/ref"
    done
    local mw mc rw rc
    mw=$(awk '{ print $1 }' "$work/mine" | median)
    mc=$(awk '{ print $2 }' "$work/mine" | median)
    rw=$(awk '{ print $1 }' "$work/ref" | median)
    rc=$(awk '{ print $2 }' "$work/ref" | median)
    printf '%-8s n=%-7s wall %6.2f s / shell %6.2f s = %5.2fx   cpu %6.2f s / shell %6.2f s = %5.2fx\n' \
        "$name" "$n" "$mw" "$rw" "$(echo "$mw / $rw" | bc -l)" "$mc" "$rc" "$(echo "$mc / $rc" | bc -l)"
}

{
    echo /
    echo "startbulk -atomic"
    for ((k = 0; k < n; k++)); do printf 'create /big/i%07d uint32 %d\n' "$k" "$k"; done
    echo endbulk
} >"$work/load.cmd"
{
    echo "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
    echo "CREATE TABLE items(path TEXT PRIMARY KEY, datatype INTEGER, value BLOB) WITHOUT ROWID;"
    echo "BEGIN;"
    for ((k = 0; k < n; k++)); do
        printf "INSERT INTO items VALUES('/big/i%07d', 1, x'%08x');\n" "$k" "$k"
    done
    echo "COMMIT;"
} >"$work/load.sql"
printf '/\nfilesave %s/tree.xnf -src /big\n' "$work" >"$work/save.cmd"
printf '/\nfilerestore %s/tree.xnf -dest /big\n' "$work" >"$work/restore.cmd"

# One store and one database of N rows, saved over and over.
mkdir -p "$work/data"
"$console" -f "$work/load.cmd" >/dev/null
sqlite3 "$work/ref.db" ".read $work/load.sql" >/dev/null
compare save : "'$console' -f '$work/save.cmd'" \
    : "sqlite3 '$work/ref.db' .dump >'$work/dump.sql'"
# Restores into an empty store and an empty database each time.
compare restore "rm -rf '$work/data'; mkdir '$work/data'" "'$console' -f '$work/restore.cmd'" \
    "rm -f '$work'/new.db*" "sqlite3 '$work/new.db' '.read $work/dump.sql'"
printf 'sizes    file %s bytes, dump %s bytes\n' "$(stat -c %s "$work/tree.xnf")" \
    "$(stat -c %s "$work/dump.sql")"
"$console" -f <(printf '/\nget /big/i%07d\n' $((n - 1))) | grep -q "$((n - 1))" ||
    { echo "files_bench: the restored tree lacks its last item" >&2; exit 1; }
