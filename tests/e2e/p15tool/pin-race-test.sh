#!/bin/sh
# p15tool's log-out at release against a hostile PC/SC client on the card in pcscd's
# "Virtual PCD" reader: p15-pin-racer watches for the user PIN to be verified and then holds
# the card longer than p15tool waits for it (P15_TRANSACTION_TIMEOUT=1), while p15tool signs K
# times. Neither after a p15tool run returns nor in the racer with no p15tool running may the
# PIN be verified, and every signature must be made.
# Usage: pin-race-test.sh P15TOOL RACER K; exit status 77 (skipped) without pcscd.
set -u
tool=$1 racer=$2 runs=$3
work=$(mktemp -d)
export P15_TEST_PIN=123456 P15_TRANSACTION_TIMEOUT=1
label="race key $$"

"$tool" readers >/dev/null
[ $? -ne 3 ] || { echo "pcscd is not running: skipped"; rm -rf "$work"; exit 77; }
# Preparing the card is no operation under test: it need not hold the card for each command.
prepare() { env -u P15_REQUIRE_TRANSACTION P15_TRANSACTION_TIMEOUT=10 "$tool" --reader Virtual "$@"; }
cleanup() {
    touch "$work/stop"
    [ -z "${racing:-}" ] || wait "$racing"
    prepare key delete --label "$label" --pin-env P15_TEST_PIN >/dev/null 2>&1
    rm -rf "$work"
}
trap cleanup EXIT
prepare keygen --bits 1024 --label "$label" --pin-env P15_TEST_PIN >/dev/null ||
    { echo "keygen failed"; exit 1; }
echo "message" >"$work/message"

"$racer" race "$work/busy" "$work/stop" & racing=$!
left=0 failed=0 i=0
while [ $i -lt "$runs" ]; do
    i=$((i + 1))
    touch "$work/busy"
    "$tool" --reader Virtual sign --label "$label" --in "$work/message" --out "$work/signature" \
        --pin-env P15_TEST_PIN >/dev/null || { failed=$((failed + 1)); echo "run $i: sign failed"; }
    rm -f "$work/busy"
    "$racer" check
    case $? in
    0) ;;
    1) left=$((left + 1)); echo "run $i: the PIN stayed verified" ;;
    *) echo "run $i: the racer could not check the PIN"; exit 1 ;;
    esac
done
touch "$work/stop"
wait $racing; raced=$?
racing=
echo "$runs runs: PIN left verified after $left, sign failed in $failed, racer status $raced"
[ $left -eq 0 ] && [ $failed -eq 0 ] && [ $raced -eq 0 ]
