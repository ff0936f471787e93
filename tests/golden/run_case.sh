#!/usr/bin/env bash
# Runs one golden case of the console and compares its standard output,
# standard error and exit status with the expected files.
#
#   run_case.sh CONSOLE CASE.cmd SOURCE_ROOT [STORE_TOOL]
#
# Files of a case, beside CASE.cmd (only .cmd is required; a missing .out or
# .err stands for empty output):
#   .out .err     expected standard output and standard error, byte for byte
#   .args         the console's arguments on one line, split at blanks;
#                 @CMD@ stands for the command file (default "-f @CMD@")
#   .setup        command file run first ("-f" only) on the same data
#                 directory; its output is dropped
#   .prep         bash script run first in the case directory (before .setup)
#                 with TARVO_DATA_DIR, TARVOCTL (the store tool) and TARVOCON
#                 (the console) in its environment
#   .status       expected exit status (default 0)
#   .stdin        file given as standard input (default /dev/null)
# In .cmd, .args and .setup @TMP@ is the case's temporary directory and @SRC@
# the source root. In the outputs the temporary directory reads @TMP@, the
# source root @SRC@, and "tarvocon rlimit set to <digits>" reads
# "tarvocon rlimit set to @RLIMIT@".
#
# Each case runs in a fresh temporary directory (its working directory and
# HOME) with a clean environment: LC_ALL=C, TERM=dumb,
# TARVO_DATA_DIR=<tmp>/data, TARVO_BAG_PATH=<src>/platform/bag/schemas:
# <src>/tests/golden/schemas, PATH starting with tests/golden/bin.
# UPDATE_GOLDEN=1 writes the actual outputs into the expected files; use it
# only to start a case, then check every line by hand.
set -u

if [ $# -lt 3 ]; then
    echo "usage: $0 CONSOLE CASE.cmd SOURCE_ROOT [STORE_TOOL]" >&2
    exit 2
fi
console=$1
case_cmd=$2
src=$3
store_tool=${4:-}

case_dir=$(cd "$(dirname "$case_cmd")" && pwd)
case_name=$(basename "$case_cmd" .cmd)
base="$case_dir/$case_name"

tmp=$(mktemp -d "${TMPDIR:-/tmp}/golden.XXXXXX") || exit 2
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/data"

# Escapes a text for use as the replacement of a sed s||| command.
sed_escape() { printf '%s' "$1" | sed -e 's/[\\&|]/\\&/g'; }
# Escapes a text for use as a basic regular expression of sed.
sed_quote() { printf '%s' "$1" | sed -e 's/[][\\.*^$|]/\\&/g'; }

# Copies file $1 to $2 with @TMP@ and @SRC@ replaced.
substitute() {
    sed -e "s|@TMP@|$(sed_escape "$tmp")|g" \
        -e "s|@SRC@|$(sed_escape "$src")|g" "$1" >"$2"
}

# Replaces what differs from run to run in output file $1.
normalize() {
    sed -i -e "s|$(sed_quote "$tmp")|@TMP@|g" \
        -e "s|$(sed_quote "$src")|@SRC@|g" \
        -e 's/tarvocon rlimit set to [0-9][0-9]*/tarvocon rlimit set to @RLIMIT@/g' "$1"
}

run_env=(env -i
    "PATH=$src/tests/golden/bin:/usr/local/bin:/usr/bin:/bin"
    "HOME=$tmp" "LC_ALL=C" "TERM=dumb"
    "TARVO_DATA_DIR=$tmp/data"
    "TARVO_BAG_PATH=$src/platform/bag/schemas:$src/tests/golden/schemas")
# Sanitizer settings of the caller are kept.
for var in ASAN_OPTIONS UBSAN_OPTIONS LSAN_OPTIONS; do
    if [ -n "${!var:-}" ]; then run_env+=("$var=${!var}"); fi
done

cmd_file="$tmp/$case_name.cmd"
substitute "$case_cmd" "$cmd_file"

args=(-f "$cmd_file")
if [ -f "$base.args" ]; then
    substitute "$base.args" "$tmp/args"
    line=$(head -n 1 "$tmp/args")
    line=${line//@CMD@/$cmd_file}
    read -r -a args <<<"$line"
fi

stdin=/dev/null
if [ -f "$base.stdin" ]; then stdin="$base.stdin"; fi

if [ -f "$base.prep" ]; then
    (cd "$tmp" && "${run_env[@]}" "TARVOCTL=$store_tool" "TARVOCON=$console" \
        bash "$case_dir/$case_name.prep") >/dev/null 2>&1 || {
        echo "golden: $base.prep failed" >&2
        exit 1
    }
fi

if [ -f "$base.setup" ]; then
    substitute "$base.setup" "$tmp/setup.cmd"
    (cd "$tmp" && timeout 60 "${run_env[@]}" "$console" -f "$tmp/setup.cmd" \
        </dev/null >/dev/null 2>&1)
fi

(cd "$tmp" && timeout 120 "${run_env[@]}" "$console" "${args[@]}" \
    <"$stdin" >"$tmp/actual.out" 2>"$tmp/actual.err")
status=$?
normalize "$tmp/actual.out"
normalize "$tmp/actual.err"

expected_status=0
if [ -f "$base.status" ]; then expected_status=$(tr -d ' \n' <"$base.status"); fi

if [ "${UPDATE_GOLDEN:-}" = 1 ]; then
    cp "$tmp/actual.out" "$base.out"
    cp "$tmp/actual.err" "$base.err"
    if [ "$status" != 0 ] || [ -f "$base.status" ]; then
        echo "$status" >"$base.status"
    fi
    echo "golden: updated $base (check every line by hand)"
    exit 0
fi

failed=0
for stream in out err; do
    expected="$base.$stream"
    if [ ! -f "$expected" ]; then expected=/dev/null; fi
    if ! cmp -s "$expected" "$tmp/actual.$stream"; then
        if [ $stream = out ]; then what=output; else what=error; fi
        echo "golden: standard $what differs ($base.$stream):"
        diff -u --label expected --label actual "$expected" "$tmp/actual.$stream" | cat -A | head -n 200
        failed=1
    fi
done
if [ "$status" != "$expected_status" ]; then
    echo "golden: exit status $status, expected $expected_status"
    failed=1
fi
exit $failed
