#!/bin/sh
# p15tool on the virtual card in pcscd's "Virtual PCD" reader (the pcscd_vcard fixture).
#   card: readers lists the reader with its card; --reader without a name finds it. (The PIN and
#         signatures through it: pin_race; card services: host_card_pcsc; keygen, key delete and
#         the module: PcscSlotTest.ProcessesShareTheReadersCard.)
#   pin_race: p15-pin-racer takes the card between any two of p15tool's transactions while p15tool
#         signs RUNS times: every signature is made, and the PIN is never left verified. p15tool
#         waits up to 5 s: on a loaded machine a racer's transaction can outlast a second.
# Usage: pcsc-test.sh card|pin_race P15TOOL RACER RUNS; exit status 77 (skipped) without pcscd.
set -u
mode=$1 tool=$2
export P15_TEST_PIN=123456 P15_TRANSACTION_TIMEOUT=5
label="pcsc $mode key $$"
readers=$("$tool" --json readers)
status=$?
[ "$status" -ne 3 ] || { echo "pcscd is not running: skipped"; exit 77; }
work=$(mktemp -d)
fail() { echo "$mode: $1"; exit 1; }
# Preparing the card is no operation under test: it need not hold the card for each command.
prepare() { env -u P15_REQUIRE_TRANSACTION P15_TRANSACTION_TIMEOUT=10 "$tool" --reader Virtual "$@"; }
cleanup() {
    touch "$work/stop"
    [ -z "${racing:-}" ] || wait "$racing"
    prepare key delete --label "$label" --pin-env P15_TEST_PIN >/dev/null 2>&1
    rm -rf "$work"
}
trap cleanup EXIT
echo "message" >"$work/message"

if [ "$mode" = pin_race ]; then
    racer=$3 runs=$4
    prepare keygen --bits 1024 --label "$label" --pin-env P15_TEST_PIN >/dev/null || fail "keygen failed"
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
fi

[ "$status" -eq 0 ] || fail "readers failed with status $status"
echo "$readers" | grep -q '"cardPresent": true' || fail "no reader with a card in: $readers"
info=$("$tool" --reader --json info) || fail "info through PC/SC failed"
echo "$info" | grep -q '"reader": "Virtual PCD' || fail "not the vpcd reader: $info"
echo "$info" | grep -q '"aid": "A000000063504B43532D3135"' || fail "no PKCS#15 application in: $info"

echo "card: p15tool reached the card through pcscd"
