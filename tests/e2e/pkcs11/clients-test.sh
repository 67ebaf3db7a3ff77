#!/bin/sh
# The module under the PKCS#11 clients of Debian's packages, on a fresh
# virtual card with one key pair: p11tool (GnuTLS), ssh-keygen (OpenSSH) and
# modutil (NSS); openssl checks what they made. Signatures are checked in
# software by test_pkcs11.
# Usage: clients-test.sh MODULE P15TOOL
# Exit 77 (skipped) when a client is not installed.
set -eu
module=$1
p15tool=$2
for tool in p11tool ssh-keygen modutil certutil openssl; do
    command -v $tool >/dev/null || { echo "skipped: $tool not installed (scripts/install-deps)"; exit 77; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sh "$(dirname "$0")/make-test-card.sh" "$p15tool" "$work/card.json" "$work"
openssl pkey -pubin -inform DER -in "$work/public.der" -out "$work/public.pem"
export P15KIT_PKCS11_CARD="$work/card.json" P15KIT_PKCS11_PCSC=off
fail() { echo "FAILED: $*"; exit 1; }

# GnuTLS: the public objects, and the private key only after login, where it signs.
p11tool --provider "$module" --list-all "pkcs11:" >"$work/public-objects"
grep -q 'type=public' "$work/public-objects" || fail "p11tool lists no public key"
! grep -q 'type=private' "$work/public-objects" || fail "a private key shown before login"
GNUTLS_PIN=123456 p11tool --provider "$module" --login --test-sign \
    "pkcs11:object=Signing%20key;type=private" >"$work/test-sign" 2>&1 ||
    fail "p11tool cannot sign: $(cat "$work/test-sign")"

# OpenSSH: the card's public key, as ssh writes the key the card was made with.
ssh-keygen -D "$module" | cut -d' ' -f1,2 >"$work/from-card"
ssh-keygen -i -m PKCS8 -f "$work/public.pem" | cut -d' ' -f1,2 >"$work/expected"
cmp -s "$work/from-card" "$work/expected" || fail "ssh-keygen -D printed $(cat "$work/from-card")"

# NSS: the module added to a fresh database lists the card's certificate
# under the token's label.
mkdir "$work/nss"
certutil -N -d "sql:$work/nss" --empty-password
modutil -dbdir "sql:$work/nss" -add p15kit -libfile "$module" -force >/dev/null
certutil -L -h all -d "sql:$work/nss" >"$work/nss-certificates"
grep -q 'p15kit virtual card:Signing key' "$work/nss-certificates" ||
    fail "certutil lists no certificate: $(cat "$work/nss-certificates")"

# NSS makes a key pair for a certificate request on a copy of the card and
# names it by CKA_ID afterwards: one new pair, a request that verifies.
# p11tool renames a key there.
keygen() { P15KIT_PKCS11_CARD="$work/keygen.json" GNUTLS_PIN=123456 "$@"; }
privateKeys() { keygen p11tool --provider "$module" --login --list-privkeys "pkcs11:"; }
cp "$work/card.json" "$work/keygen.json"
echo 123456 >"$work/pin"
head -c 64 /dev/urandom >"$work/noise"
before=$(privateKeys | grep -c 'type=private')
keygen certutil -R -k rsa -g 2048 -s "CN=p15kit request" -d "sql:$work/nss" \
    -h "p15kit virtual card" -f "$work/pin" -z "$work/noise" -o "$work/request.der" \
    >"$work/certutil-R" 2>&1 || fail "certutil -R: $(cat "$work/certutil-R")"
after=$(privateKeys | grep -c 'type=private')
[ "$after" -eq $((before + 1)) ] || fail "certutil -R left $after private keys, not $((before + 1))"
openssl req -verify -noout -inform DER -in "$work/request.der" >/dev/null 2>&1 ||
    fail "openssl does not verify the request certutil made on the card"
keygen p11tool --provider "$module" --login --set-label Renamed \
    "pkcs11:object=Signing%20key;type=private" >/dev/null 2>&1 || fail "p11tool cannot rename a key"
privateKeys | grep -q 'object=Renamed;type=private' || fail "p11tool lists no renamed key"

echo "all clients work with the module"
