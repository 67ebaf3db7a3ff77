#!/bin/sh
# Programs sharing one card with two 1024-bit RSA key pairs made by p15tool:
#   pcsc   two p15-pkcs11-signer processes on the card in pcscd's "Virtual PCD" reader sign N
#          messages each with their own key, then decipher N: every signature and plaintext checked;
#   image  the same, both processes opening one virtual card image;
#   reset  a module session logged in on the reader's card falls back to the public state when
#          p15tool resets the card, and works again after a new C_Login.
# Usage: shared-card-test.sh pcsc|image|reset SIGNER P15TOOL N; 77 (skipped) without pcscd.
set -u
mode=$1 signer=$2 tool=$3 count=$4
work=$(mktemp -d)
export P15_TEST_PIN=123456 P15_TEST_PUK=12345678 P15_TEST_SO_PIN=87654321

if [ "$mode" = image ]; then
    card="--card $work/card.json"
    export P15KIT_PKCS11_CARD="$work/card.json" P15KIT_PKCS11_PCSC=off
    "$tool" $card init --pin-env P15_TEST_PIN --puk-env P15_TEST_PUK --so-pin-env P15_TEST_SO_PIN \
        >/dev/null || { echo "init of the card image failed"; exit 1; }
else
    "$tool" readers >/dev/null || [ $? -ne 3 ] || { echo "no pcscd: skipped"; rm -r "$work"; exit 77; }
    card="--reader Virtual"
    export P15KIT_PKCS11_CARD= # the readers alone
fi
keys() { # runs a p15tool command on both keys, up to the first failure
    for key in A B; do
        "$tool" $card "$@" --label "shared $key $$" --pin-env P15_TEST_PIN >/dev/null || return 1
    done
}
cleanup() { keys key delete 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT
keys keygen --bits 1024 || { echo "keygen of the two keys failed"; exit 1; }

# Both processes at once, each with its own key; every failure is printed by the client.
status=0
[ "$mode" != reset ] || { "$signer" reset "shared A $$" "\"$tool\" $card list >/dev/null"; exit; }
for operation in sign decrypt; do
    "$signer" $operation "shared A $$" "$count" & first=$!
    "$signer" $operation "shared B $$" "$count" || status=1
    wait $first || status=1
done
exit $status
