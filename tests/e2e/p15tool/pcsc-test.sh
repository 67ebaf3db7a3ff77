#!/bin/sh
# p15tool and the PKCS#11 module on a virtual card in pcscd's "Virtual PCD" reader (the
# pcscd_vcard fixture), native or of the iso profile: readers lists the reader with its card,
# --reader without a name finds it, list and pin show its PINs (a wrong PIN refused, the right one
# verified), and a key generated through the reader signs what openssl verifies and deciphers
# what openssl enciphered, through p15tool and through the module (p15-pkcs11-signer).
# For iso, the fixture's card is swapped for an iso card image and a fresh native card put back
# at the end.
# Usage: pcsc-test.sh native|iso P15TOOL SIGNER; exit status 77 (skipped) without pcscd.
# Environment: P15_PCSCD_STATE, P15_VCARD_SERVE, P15_PCSC_WAIT (the fixture's).
set -u
profile=$1 tool=$2 signer=$3
work=$(mktemp -d)
fail() { echo "$profile: $1"; exit 1; }
export P15_TEST_PIN=123456 P15_TEST_PUK=12345678 P15_TEST_SO_PIN=87654321 WRONG_PIN=999999
export P15KIT_PKCS11_CARD= # the module sees the readers alone

readers=$("$tool" --json readers)
status=$?
[ "$status" -ne 3 ] || { echo "pcscd is not running: skipped"; exit 77; }
[ "$status" -eq 0 ] || fail "readers failed with status $status"
echo "$readers" | grep -q '"cardPresent": true' || fail "no reader with a card in: $readers"

# Serves IMAGE (none: a fresh native card) in place of the fixture's card.
swap_card() {
    kill "$(cat "$P15_PCSCD_STATE/bridge.pid")"
    sleep 1
    "$P15_VCARD_SERVE" "$@" >>"$P15_PCSCD_STATE/bridge.log" 2>&1 &
    echo $! >"$P15_PCSCD_STATE/bridge.pid"
    "$P15_PCSC_WAIT" 10 || fail "the swapped card did not appear"
}
cleanup() {
    [ "$profile" = iso ] && swap_card
    rm -rf "$work"
}
trap cleanup EXIT
if [ "$profile" = iso ]; then
    "$tool" --card "$work/iso.json" init --profile iso --pin-env P15_TEST_PIN \
        --puk-env P15_TEST_PUK --so-pin-env P15_TEST_SO_PIN >/dev/null || fail "init failed"
    swap_card --image "$work/iso.json"
fi

info=$("$tool" --reader --json info) || fail "info through PC/SC failed"
echo "$info" | grep -q '"reader": "Virtual PCD' || fail "not the vpcd reader: $info"
echo "$info" | grep -q '"aid": "A000000063504B43532D3135"' ||
    fail "no PKCS#15 application in: $info"

# The iso card tells neither tries nor state: "unknown", and the wrong PIN says so.
if [ "$profile" = iso ]; then told='"state": "unknown"'; else told='"triesLeft": 3'; fi
"$tool" --reader --json list | grep -q "$told" || fail "list does not show $told"
wrong=$("$tool" --reader pin verify --pin-env WRONG_PIN 2>&1) && fail "a wrong PIN verified"
echo "$wrong" | grep -q "wrong User PIN" || fail "a wrong PIN said: $wrong"
"$tool" --reader --json pin verify --pin-env P15_TEST_PIN | grep -q '"state": "verified"' ||
    fail "the right PIN did not verify"

label="PC/SC key $$"
keys() { "$tool" --reader "$@" --label "$label" --pin-env P15_TEST_PIN; }
keys keygen --bits 1024 >/dev/null || fail "keygen through PC/SC failed"
echo "signed through pcscd" >"$work/message"
keys sign --in "$work/message" --out "$work/signature" || fail "sign through PC/SC failed"
"$tool" --reader key export --label "$label" --out "$work/key.pem" || fail "export failed"
openssl dgst -sha256 -verify "$work/key.pem" -signature "$work/signature" "$work/message" |
    grep -q "Verified OK" || fail "openssl does not verify the card's signature"
printf 'a secret' >"$work/secret"
openssl pkeyutl -encrypt -pubin -inkey "$work/key.pem" -in "$work/secret" -out "$work/cipher" ||
    fail "openssl could not encipher"
[ "$(keys decrypt --in "$work/cipher")" = "a secret" ] || fail "decipher through PC/SC failed"
for operation in sign decrypt; do
    "$signer" $operation "$label" 3 || fail "the module's $operation through PC/SC failed"
done
keys key delete >/dev/null || fail "key delete through PC/SC failed"
echo "$profile: p15tool and the module reached the card through pcscd; signatures and secrets check"
