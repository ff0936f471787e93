#!/usr/bin/env bash
# Every golden suite in turn (for the run on etcd): golden_suites.sh RUNNER
# CONSOLE STORE_TOOL SOURCE_ROOT. Fails when one suite failed.
set -uo pipefail
runner=$1 console=$2 tool=$3 root=$4
status=0
for suite in "$root"/tests/golden/*/; do
    suite=${suite%/}
    case $(basename "$suite") in nolib | bin | schemas) continue ;; esac
    ls "$suite"/*.cmd >/dev/null 2>&1 || continue
    "$runner" "$console" "$tool" "$root" "$suite" || status=1
done
exit $status
