#!/usr/bin/env bash
# Crash consistency of commits, bulk ends, file restores and diff
# applications: runs the console on a command file of rounds made by
# crash_driver (transactions of up to 50 items; bulks of up to 2,000 ended
# atomically or not; restores of saved trees; bulks adding a diff file and
# saving their own changes as one), kills it with SIGKILL after a random
# time, then checks the store and the saved diffs: intact, and every commit
# there whole or not at all. All trials share one
# data directory, so each starts from what the kills before left.
#
#   tests/stress/crash_commits.sh DRIVER CONSOLE [TRIALS [SEED]]
#
# DRIVER is <build>/tests/stress/crash_driver, CONSOLE <build>/exec/tarvocon;
# TRIALS defaults to 100. Each trial prints its seed; a failing trial is
# replayed by giving its seed as SEED with TRIALS 1 (the kill time depends
# on the machine's speed, so a replay hits the same kind of moment, not the
# same instruction).
set -euo pipefail

driver=$1
console=$2
trials=${3:-100}
seed=${4:-$(( $(date +%s) % 100000 ))}
work=$(mktemp -d "${TMPDIR:-/tmp}/crash_commits.XXXXXX")
trap 'rm -rf "$work"' EXIT
export TARVO_DATA_DIR="$work/data" HOME="$work"
mkdir "$work/files"

for ((t = 0; t < trials; t++)); do
    s=$((seed + t))
    delay_ms=$((20 + (s * 2654435761 >> 11) % 700))
    "$driver" commands "$s" 100 "$work/files" >"$work/rounds.cmd"
    first=$(sed -n '1s/^# first round //p' "$work/rounds.cmd")
    "$console" -f "$work/rounds.cmd" -e >"$work/console.out" 2>"$work/console.err" &
    pid=$!
    sleep "$(printf '%d.%03d' $((delay_ms / 1000)) $((delay_ms % 1000)))"
    if ! kill -KILL "$pid" 2>/dev/null; then
        wait "$pid" || true
        if [ -s "$work/console.err" ]; then
            echo "trial $t seed $s: the console stopped:" >&2
            cat "$work/console.err" >&2
            exit 1
        fi
    fi
    wait "$pid" 2>/dev/null || true
    # What the console had written out when it was killed: headers of
    # commits and bulk ends, and the reports that they were done. Its output
    # to a file is buffered, so the last of them may be missing; a kill
    # inside a commit shows only when the buffer went out just before.
    awk -v round="$first" '
        /^Command [0-9]+: (committrans|endbulk|cfgmgr_endbulk .*|filerestore .*)$/ {
            print "commit " round
        }
        /^(Transaction committed|Bulk operation ended|File restored) successfully$/ {
            print "done " round++
        }
    ' "$work/console.out" >"$work/done.log"
    if ! result=$("$driver" check "$work/done.log" "$work/files"); then
        echo "trial $t seed $s killed after ${delay_ms} ms: $result" >&2
        exit 1
    fi
    echo "trial $t seed $s killed after ${delay_ms} ms: $result"
done
echo "$trials trials passed"
