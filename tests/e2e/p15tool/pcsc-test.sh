#!/bin/sh
# p15tool on the virtual card in pcscd's "Virtual PCD" reader (the pcscd_vcard
# fixture): readers lists the reader with its card, --reader without a name
# finds that card, and a key generated through the reader signs what openssl
# then verifies with the key exported through it.
# Usage: pcsc-test.sh P15TOOL; exit status 77 (skipped) without pcscd.
set -u
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$1"; exit 1; }

readers=$("$tool" --json readers)
status=$?
if [ "$status" -eq 3 ]; then
    echo "pcscd is not running: skipped"
    exit 77
fi
[ "$status" -eq 0 ] || fail "readers failed with status $status"
echo "$readers" | grep -q '"cardPresent": true' || fail "no reader with a card in: $readers"

info=$("$tool" --reader --json info) || fail "info through PC/SC failed"
echo "$info" | grep -q '"reader": "Virtual PCD' || fail "not the vpcd reader: $info"
echo "$info" | grep -q '"aid": "A000000063504B43532D3135"' ||
    fail "no PKCS#15 application in: $info"

# The fixture's card has the default user PIN.
export P15_TEST_PIN=123456
label="PC/SC key $$"
"$tool" --reader keygen --bits 1024 --label "$label" --pin-env P15_TEST_PIN >/dev/null ||
    fail "keygen through PC/SC failed"
echo "signed through pcscd" >"$work/message"
"$tool" --reader sign --label "$label" --in "$work/message" --out "$work/signature" \
    --pin-env P15_TEST_PIN || fail "sign through PC/SC failed"
"$tool" --reader key export --label "$label" --out "$work/key.pem" || fail "export failed"
openssl dgst -sha256 -verify "$work/key.pem" -signature "$work/signature" "$work/message" |
    grep -q "Verified OK" || fail "openssl does not verify the card's signature"
"$tool" --reader key delete --label "$label" --pin-env P15_TEST_PIN >/dev/null ||
    fail "key delete through PC/SC failed"
echo "p15tool reached the card through pcscd, and its signature verifies"
