# shellcheck shell=bash
# Read by .ci/run: runs stages, keeps what they print in the folder "logs", and counts.

: "${logs:?}"
left_out=77 # the status of a stage that cannot be run on this machine, and says why
total=0
failed=0
skipped=()
report=()

# stage NAME COMMAND... runs a stage, shows and keeps what it prints, and counts it: a stage that ran ctest counts
# with its tests, any other as one. What was skipped is neither passed nor failed. A stage whose ctest ran no test
# has failed, whatever its status.
stage() {
    local name=$1 begin=$SECONDS status sum outcome unrun unlisted why=
    shift
    echo
    echo "=== $name"
    # Not as a condition: the shell would ignore "set -e" in there.
    set +e
    (
        set -e
        "$@"
    ) 2>&1 | tee "$logs/$name.log"
    status=${PIPESTATUS[0]}
    set -e
    mapfile -t unrun < <(sed -nE 's/^[[:space:]]+[0-9]+ - (.*) \((Skipped|Disabled)\)$/\1/p' "$logs/$name.log" | sort -u)
    sum=$(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests? failed out of ([0-9]+).*/\1 \2/p' \
        "$logs/$name.log" | tail -n 1)
    if [ -z "$sum" ] && [ "$status" -ne "$left_out" ] && grep -q '^Test project ' "$logs/$name.log"; then
        [ "$status" -ne 0 ] || status=1
        # ctest gives up when a program does not list its tests.
        unlisted=$(sed -nE "s/^ *Path: '(.*[ /])?([^ /']+)'$/\2/p" "$logs/$name.log" | sort -u | tr '\n' ' ')
        why=": no test was run${unlisted:+, tests not listed of ${unlisted% }}"
    fi
    outcome=passed
    if [ "$status" -eq "$left_out" ]; then
        outcome="left out: $(sed -n 's/^left out: //p' "$logs/$name.log" | tail -n 1)"
        skipped+=("$name")
    elif [ -n "$sum" ] && { [ "$status" -eq 0 ] || [ "${sum% *}" -gt 0 ]; }; then
        failed=$((failed + ${sum% *}))
        total=$((total + ${sum#* } - ${#unrun[@]}))
        skipped+=(${unrun[@]+"${unrun[@]/#/$name: }"})
    else
        total=$((total + 1))
        [ "$status" -eq 0 ] || failed=$((failed + 1))
    fi
    [ "$status" -eq 0 ] || [ "$status" -eq "$left_out" ] || outcome=FAILED$why
    if [ ${#unrun[@]} -gt 0 ]; then
        outcome+=", ${#unrun[@]} skipped"
    fi
    report+=("$(printf '%-8s %5d s  %s' "$name" $((SECONDS - begin)) "$outcome")")
}

# Ends with the counts; its status says whether nothing failed.
sum_up() {
    echo
    if [ ${#skipped[@]} -gt 0 ]; then
        echo "skipped:"
        printf '  %s\n' "${skipped[@]}"
    fi
    printf '%s\n' "${report[@]}"
    printf 'all      %5d s\n' "$SECONDS"
    echo "${#skipped[@]} skipped"
    echo "$((total > 0 ? 100 * (total - failed) / total : 0))% tests passed, $failed tests failed out of $total"
    [ "$failed" -eq 0 ] && [ "$total" -gt 0 ]
}
