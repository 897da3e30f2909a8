#!/bin/bash
# How often the tests of a program for Windows are listed, with a Wine that fails as it is told.
#
#   listing_test.sh RUN_SCRIPT
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cat >"$folder/wine" <<'WINE'
#!/bin/sh
# Each line of "answers" is for one call: its status, and what it prints.
read -r status text <"$(dirname "$0")/answers"
sed -i 1d "$(dirname "$0")/answers"
[ -z "$text" ] || echo "$text"
exit "$status"
WINE
chmod +x "$folder/wine"

# check EXPECTED ANSWERS ARGUMENTS: status, output and errors, in one line.
check() {
    local actual status=0
    printf '%b' "$2" >"$folder/answers"
    # shellcheck disable=SC2086
    PATH=$folder:$PATH "$run" 'Z:\bin\some_test.exe' $3 >"$folder/out" 2>"$folder/err" || status=$?
    actual="$status|$(cat "$folder/out")|$(sed 's/.*some_test.exe failed: //' "$folder/err" | tr '\n' '|')"
    if [ "$actual" != "$1" ]; then
        printf '%s\n  is       %s\n  expected %s\n' "$2" "$actual" "$1"
        exit 1
    fi
}

run=$1
list=--gtest_list_tests
check '0|Suite.|' '0 Suite.\n' $list
check '0|Suite.|result 1, attempt 1 of 3|' '1\n0 Suite.\n' $list
check '0|Suite.|result 0, attempt 1 of 3|result 1, attempt 2 of 3|' '0\n1\n0 Suite.\n' $list
check '1|half|result 1, attempt 1 of 3|result 1, attempt 2 of 3|result 3, attempt 3 of 3|' '1\n1\n3 half\n0 Suite.\n' $list
# A test that fails is not run again.
check '1|failed|' '1 failed\n0 passed\n' --gtest_filter=A.B
