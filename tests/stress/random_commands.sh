#!/usr/bin/env bash
# Random command files through the real console: ROUNDS rounds, each with
# CONSOLES consoles (2) at once on a fresh data directory, each running LINES
# (300) lines made by random_driver. A console must reach the end of its
# file (exit status 0) within a minute; nothing may report an internal
# error, a busy, failed or damaged store or a sanitizer finding; and the store must pass its
# integrity check afterwards. Refusals of bad commands are expected.
#
#   tests/stress/random_commands.sh DRIVER CONSOLE TARVOCTL [ROUNDS [CONSOLES [LINES [SEED]]]]
set -euo pipefail

driver=$1
console=$2
tarvoctl=$3
rounds=${4:-100}
consoles=${5:-2}
lines=${6:-300}
seed=${7:-$(( $(date +%s) % 100000 ))}
work=$(mktemp -d "${TMPDIR:-/tmp}/random_commands.XXXXXX")
trap 'rm -rf "$work"' EXIT
# Junk lines save to relative file names: keep them in the work directory.
driver=$(realpath "$driver") console=$(realpath "$console") tarvoctl=$(realpath "$tarvoctl")
cd "$work"

# What no command may print, however bad: the console's own failure, the
# store's, and the sanitizers' reports.
printf '%s\n' 'An internal error has occurred' 'store busy' 'store failure' \
    'store is damaged' 'Sanitizer' 'runtime error' >"$work/faults"

echo "seed $seed: $rounds rounds of $consoles consoles x $lines lines"
for ((r = 0; r < rounds; r++)); do
    rm -rf "$work/data" "$work/files"
    mkdir "$work/data" "$work/files"
    export TARVO_DATA_DIR="$work/data" HOME="$work/data"
    pids=()
    for ((c = 0; c < consoles; c++)); do
        s=$((seed + r * consoles + c))
        "$driver" "$s" "$lines" "$work/files" >"$work/in$c"
        timeout 60 "$console" -f "$work/in$c" >"$work/out$c" 2>"$work/err$c" </dev/null &
        pids+=($!)
    done
    for ((c = 0; c < consoles; c++)); do
        s=$((seed + r * consoles + c))
        status=0
        wait "${pids[$c]}" || status=$?
        if [ "$status" -ne 0 ] ||
            grep -q -f "$work/faults" "$work/err$c"; then
            echo "round $r console $c (seed $s, $lines lines): status $status" >&2
            grep -m 5 -f "$work/faults" "$work/err$c" >&2 || true
            exit 1
        fi
    done
    if ! "$tarvoctl" check >"$work/check" 2>&1; then
        echo "round $r (seeds from $((seed + r * consoles))): the store fails its check:" >&2
        cat "$work/check" >&2
        exit 1
    fi
done
echo "$rounds rounds passed"
