#!/bin/sh
# Programs sharing one card. The card gets two 1024-bit RSA key pairs from p15tool; then
#   pcsc   two p15-pkcs11-signer processes on the card in pcscd's "Virtual PCD" reader make N
#          signatures each with their own key, then decipher N cryptograms each: every
#          signature must verify under its own key and every plaintext match;
#   image  the same, both processes opening one virtual card image;
#   reset  a module session logged in on the reader's card must fall back to the public state
#          when p15tool resets the card, and work again after a new C_Login.
# Usage: shared-card-test.sh pcsc|image|reset SIGNER P15TOOL N
# Exit status 77 (skipped) without pcscd for pcsc and reset.
set -u
mode=$1 signer=$2 tool=$3 count=$4
work=$(mktemp -d)
fail() { echo "$1"; exit 1; }
prepare() { "$tool" $card "$@"; }
export P15_TEST_PIN=123456 P15_TEST_PUK=12345678 P15_TEST_SO_PIN=87654321
keys="shared A $$
shared B $$"

if [ "$mode" = image ]; then
    card="--card $work/card.json"
    export P15KIT_PKCS11_CARD="$work/card.json" P15KIT_PKCS11_PCSC=off
    prepare init --pin-env P15_TEST_PIN --puk-env P15_TEST_PUK --so-pin-env P15_TEST_SO_PIN \
        >/dev/null || fail "init of the card image failed"
else
    "$tool" readers >/dev/null
    [ $? -ne 3 ] || { echo "pcscd is not running: skipped"; exit 77; }
    card="--reader Virtual"
    export P15KIT_PKCS11_CARD= # the readers alone
fi
cleanup() {
    echo "$keys" | while read -r label; do
        prepare key delete --label "$label" --pin-env P15_TEST_PIN >/dev/null 2>&1
    done
    rm -rf "$work"
}
trap cleanup EXIT
echo "$keys" | while read -r label; do
    prepare keygen --bits 1024 --label "$label" --pin-env P15_TEST_PIN >/dev/null ||
        fail "keygen of \"$label\" failed"
done || exit 1

if [ "$mode" = reset ]; then
    "$signer" reset "shared A $$" "\"$tool\" $card list >/dev/null"
    exit # through the clean-up, with the client's status
fi
# Both processes at once, each with its own key; every failure is printed by the client.
status=0
for operation in sign decrypt; do
    start=$(date +%s)
    "$signer" $operation "shared A $$" "$count" & first=$!
    "$signer" $operation "shared B $$" "$count" & second=$!
    wait $first; a=$?
    wait $second; b=$?
    echo "$operation: $count each in $(($(date +%s) - start)) s"
    [ $a -eq 0 ] && [ $b -eq 0 ] || { echo "$operation: a client failed (status $a, $b)"; status=1; }
done
[ $status -eq 0 ] && echo "two programs on one card signed and deciphered, each with its own key only"
exit $status
