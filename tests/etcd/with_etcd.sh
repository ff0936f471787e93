#!/usr/bin/env bash
# Runs a command against a single-member etcd started for it on a free
# loopback port (scripts/etcd-cluster, in a temporary directory), and stops
# etcd afterwards. The command finds the cluster in TARVO_TEST_ETCD and
# GOLDEN_SHARED_STORE (etcd://127.0.0.1:PORT, without a prefix).
#   with_etcd.sh SOURCE_ROOT COMMAND [ARG...]
set -euo pipefail
root=$1
shift
TARVO_ETCD_DIR=$(mktemp -d "${TMPDIR:-/tmp}/tarvo-etcd-test.XXXXXX")
export TARVO_ETCD_DIR
trap '"$root/scripts/etcd-cluster" stop; rm -rf "$TARVO_ETCD_DIR"' EXIT
location=$("$root/scripts/etcd-cluster" start 1)
export TARVO_TEST_ETCD=$location GOLDEN_SHARED_STORE=$location
"$@"
