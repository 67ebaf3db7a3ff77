#!/bin/sh
# Makes the PKCS#11 tests' virtual card with p15tool: profile P15_TESTCARD_PROFILE (else native),
# user PIN 123456, PUK 12345678, SO PIN 87654321, a 2048-bit RSA key pair ("Signing key", id 45 01)
# and its self-signed certificate "CN=p15kit test"; beside it in DIR, private.der (PKCS#8, for
# software signing and deciphering) and certificate.der. Usage: make-test-card.sh P15TOOL IMAGE DIR
set -eu
p15tool=$1 image=$2 dir=$3
export P15_TESTCARD_PIN=123456 P15_TESTCARD_PUK=12345678 P15_TESTCARD_SO_PIN=87654321
"$p15tool" --card "$image" init --force --profile "${P15_TESTCARD_PROFILE:-native}" \
    --pin-env P15_TESTCARD_PIN --puk-env P15_TESTCARD_PUK --so-pin-env P15_TESTCARD_SO_PIN >/dev/null
openssl genrsa -out "$dir/private.pem" 2048 2>/dev/null
openssl pkcs8 -topk8 -nocrypt -in "$dir/private.pem" -outform DER -out "$dir/private.der"
card() { "$p15tool" --card "$image" "$@" --pin-env P15_TESTCARD_PIN >/dev/null; }
card key import "$dir/private.pem" --label "Signing key" --id 4501
card selfsign --id 4501 --subject "CN=p15kit test" --format der --out "$dir/certificate.der"
card cert write "$dir/certificate.der" --label "Signing key" --id 4501
rm "$dir/private.pem"
