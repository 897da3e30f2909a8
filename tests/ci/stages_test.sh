#!/bin/bash
# Stages that do nothing but end as stages can: what the sum says of them.
# shellcheck disable=SC2317
#
#   stages_test.sh STAGES_FILE
set -euo pipefail
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

# check EXPECTED STAGES: the sum of some stages, one word each.
check() {
    local actual
    actual=$(
        # shellcheck source=.ci/stages.sh
        . "$1"
        good() { echo "all is well"; }
        bad() { false; echo "never reached"; }
        absent() { echo "left out: there is no such tool"; return "$left_out"; }
        tests() { printf '90%% tests passed, 1 tests failed out of 10\n\t  4 - B.Two (Skipped)\n\t  5 - A.One (Disabled)\n'; false; }
        broken() { printf '100%% tests passed, 0 tests failed out of 10\n'; false; }
        none() { printf 'Test project /tmp\nNo tests were found!!!\n'; }
        unlisted() { printf "Test project /tmp\n  Error running test executable.\n\n    Path: '/a b/run /c/some_test.exe'\n    Result: 1\n"; false; }
        for name in $3; do
            stage "$name" "$name" >/dev/null
        done
        sum_up | sed -E 's/ +[0-9]+ s\b/ T/' | tr '\n' '|' || true
    )
    if [[ $actual != *"$2" ]]; then
        printf '%s:\n  is      %s\n  expected %s\n' "$3" "$actual" "$2"
        exit 1
    fi
}

stages=$1
check "$stages" '|good T  passed|all T|0 skipped|100% tests passed, 0 tests failed out of 1|' "good"
check "$stages" 'bad T  FAILED|all T|0 skipped|50% tests passed, 1 tests failed out of 2|' "good bad"
check "$stages" '|skipped:|  absent|absent T  left out: there is no such tool|all T|1 skipped|0% tests passed, 0 tests failed out of 0|' absent
check "$stages" '|skipped:|  tests: A.One|  tests: B.Two|tests T  FAILED, 2 skipped|all T|2 skipped|87% tests passed, 1 tests failed out of 8|' tests
check "$stages" 'broken T  FAILED|all T|0 skipped|0% tests passed, 1 tests failed out of 1|' broken
check "$stages" '|none T  FAILED: no test was run|all T|0 skipped|0% tests passed, 1 tests failed out of 1|' none
check "$stages" '|unlisted T  FAILED: no test was run, tests not listed of some_test.exe|all T|0 skipped|50% tests passed, 1 tests failed out of 2|' "good unlisted"
