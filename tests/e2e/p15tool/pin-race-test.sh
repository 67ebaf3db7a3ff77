#!/bin/sh
# p15tool's log-out at release against p15-pin-racer, a hostile PC/SC client that takes the card
# between any two of p15tool's transactions, while p15tool signs K times: every signature is made,
# and the PIN is never verified once p15tool returns. p15tool waits up to 5 s for the card: on a
# loaded machine one of the racer's short transactions can outlast a single second.
# Usage: pin-race-test.sh P15TOOL RACER K; exit status 77 (skipped) without pcscd.
set -u
tool=$1 racer=$2 runs=$3
export P15_TEST_PIN=123456 P15_TRANSACTION_TIMEOUT=5
label="race key $$"
"$tool" readers >/dev/null || [ $? -ne 3 ] || { echo "pcscd is not running: skipped"; exit 77; }
work=$(mktemp -d)
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
failed=0
for i in $(seq "$runs"); do
    touch "$work/busy"
    "$tool" --reader Virtual sign --label "$label" --in "$work/message" --out "$work/signature" \
        --pin-env P15_TEST_PIN >/dev/null || { failed=1; echo "run $i: sign failed"; }
    rm -f "$work/busy"
    "$racer" check >/dev/null || { echo "run $i: PIN left verified or racer status $?"; failed=1; }
done
touch "$work/stop"
wait $racing || { echo "the racer found the PIN verified without p15tool or failed ($?)"; failed=1; }
racing=
exit $failed
