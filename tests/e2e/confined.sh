#!/bin/sh
# confined.sh SHARDS PROGRAM: runs a test program with confined workers, in several processes at a time. Its tests wait
# most of the time, and they have been run one by one already.
set -u
shards=$1
program=$2
export MEDIAWORKER_TEST_SANDBOX=on
export GTEST_TOTAL_SHARDS="$shards"
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
pids=
i=0
while [ "$i" -lt "$shards" ]; do
    GTEST_SHARD_INDEX=$i "$program" --gtest_brief=1 >"$logs/$i" 2>&1 &
    pids="$pids $!"
    i=$((i + 1))
done
status=0
for pid in $pids; do
    wait "$pid" || status=1
done
cat "$logs"/*
exit "$status"
