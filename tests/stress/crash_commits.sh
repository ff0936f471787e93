#!/usr/bin/env bash
# Crash consistency of commits and bulk ends: starts the writer of
# crash_driver, kills it with SIGKILL after a random time (while it commits
# transactions of up to 50 items and ends bulks of up to 10,000), then checks
# the store: intact, and every commit there whole or not at all. All trials
# share one data directory, so each starts from what the kills before left.
#
#   tests/stress/crash_commits.sh DRIVER [TRIALS [SEED]]
#
# DRIVER is <build>/tests/stress/crash_driver; TRIALS defaults to 100. Each
# trial prints its seed; a failing trial is replayed by giving its seed as
# SEED with TRIALS 1 (the kill time depends on the machine's speed, so a
# replay hits the same kind of moment, not the same instruction).
set -euo pipefail

driver=$1
trials=${2:-100}
seed=${3:-$(( $(date +%s) % 100000 ))}
work=$(mktemp -d "${TMPDIR:-/tmp}/crash_commits.XXXXXX")
trap 'rm -rf "$work"' EXIT
export TARVO_DATA_DIR="$work/data"

for ((t = 0; t < trials; t++)); do
    s=$((seed + t))
    delay_ms=$((20 + (s * 2654435761 >> 11) % 700))
    "$driver" write "$s" >>"$work/done.log" 2>"$work/writer.err" &
    pid=$!
    sleep "$(printf '%d.%03d' $((delay_ms / 1000)) $((delay_ms % 1000)))"
    if ! kill -KILL "$pid" 2>/dev/null; then
        echo "trial $t seed $s: the writer had stopped:" >&2
        cat "$work/writer.err" >&2
        exit 1
    fi
    wait "$pid" 2>/dev/null || true
    if ! result=$("$driver" check "$work/done.log"); then
        echo "trial $t seed $s killed after ${delay_ms} ms: $result" >&2
        exit 1
    fi
    echo "trial $t seed $s killed after ${delay_ms} ms: $result"
done
echo "$trials trials passed"
