#!/usr/bin/env bash
# Consoles working at once on one data directory: CONSOLES consoles (4) run
# command files of OPS writes each (10,000) made by consoles_driver:
# creates, sets and deletes, transactions, atomic bulks, a write lock taken
# and a value written and read back under it, writes refused by another's
# lock, and listings of what the others commit. Then the driver checks the
# final tree against the operations, that the lock never had two writers
# and that no listing showed half a commit; and this script that nothing but
# the lock refusals reached the users (a busy store is waited on, never
# reported).
#
#   tests/stress/four_consoles.sh DRIVER CONSOLE [OPS [CONSOLES [SEED]]]
set -euo pipefail

driver=$1
console=$2
ops=${3:-10000}
consoles=${4:-4}
seed=${5:-$(( $(date +%s) % 100000 ))}
work=$(mktemp -d "${TMPDIR:-/tmp}/four_consoles.XXXXXX")
trap 'rm -rf "$work"' EXIT
export TARVO_DATA_DIR="$work/data" HOME="$work"

echo "seed $seed: $consoles consoles x $ops operations"
printf '/\ncreate /many/shared/owner uint32 0\n' >"$work/setup.cmd"
"$console" -f "$work/setup.cmd" >/dev/null
pids=()
for ((c = 0; c < consoles; c++)); do
    "$driver" commands "$seed" "$c" "$consoles" "$ops" >"$work/in$c"
    "$console" -f "$work/in$c" >"$work/out$c" 2>"$work/err$c" &
    pids+=($!)
done
status=0
for ((c = 0; c < consoles; c++)); do
    wait "${pids[$c]}" || { echo "console $c ended with status $?" >&2; status=1; }
done
# The only refusals expected: writes and locks inside another console's
# lock, and listings of directories not made yet.
for ((c = 0; c < consoles; c++)); do
    grep -v -e '^\[Tarvocon\] While \(setting\|getting a write lock\|releasing\|executing the datalist\)' \
        -e 'locked by bind [0-9a-f.]* of process [0-9]*' -e '^locked by another bind$' \
        -e '^no lock held on path$' -e '^no such item or directory$' \
        -e '^tarvocon rlimit set to' "$work/err$c" >"$work/unexpected$c" || true
    if [ -s "$work/unexpected$c" ]; then
        echo "console $c reported:" >&2
        sort "$work/unexpected$c" | uniq -c | head -20 >&2
        status=1
    fi
done
echo "refused by a lock: $(cat "$work"/err* | grep -c "locked by bind" || true)"
"$driver" check "$seed" "$consoles" "$ops" "$work" || status=1
exit $status
