#!/bin/sh
# The module under the programs users log in with, each with its default settings, against servers
# on loopback that trust the card's self-signed certificate: TLS (openssl s_client, curl,
# gnutls-cli), S/MIME (openssl cms), RSA-PSS and RSAES-OAEP through the OpenSSL PKCS#11 engine, NSS
# and p11tool, ssh (root only). Usage: login-test.sh MODULE P15TOOL. Exit 77 (skipped) when a client
# is not installed, or after every other proof when sshd cannot be started (not root).
set -eu
module=$(realpath "$1") p15tool=$2
for tool in openssl curl gnutls-cli ssh ssh-keygen shuf setsid p11tool modutil certutil; do
    command -v $tool >/dev/null || { echo "skipped: $tool not installed (scripts/install-deps)"; exit 77; }
done
openssl engine pkcs11 >/dev/null 2>&1 || { echo "skipped: no OpenSSL pkcs11 engine"; exit 77; }

work=$(mktemp -d) pid=
trap '[ -z "$pid" ] || kill "$pid" 2>/dev/null || true; rm -rf "$work"' EXIT
trap 'exit 1' INT TERM
sh "$(dirname "$0")/make-test-card.sh" "$p15tool" "$work/card.json" "$work"
"$p15tool" --card "$work/card.json" cert read --id 4501 --out "$work/card.pem"
"$p15tool" --card "$work/card.json" key export --id 4501 --out "$work/card-pub.pem"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj /CN=localhost \
    -addext subjectAltName=IP:127.0.0.1 -keyout "$work/server.key" -out "$work/server.pem" 2>/dev/null
export P15KIT_PKCS11_CARD="$work/card.json" P15KIT_PKCS11_PCSC=off PKCS11_MODULE_PATH="$module"
key='pkcs11:object=Signing%20key;type=private;pin-value=123456'
engine() { timeout 20 openssl "$@" -engine pkcs11 -keyform engine 2>>"$work/$step.client-errors"; }

# A step's logs are $work/STEP.*; a failure prints them.
fail() { echo "FAILED ($step): $*"; tail -n +1 "$work/$step".* 2>/dev/null; exit 1; }

# Starts FUNCTION ARGS in the background on a random loopback port ($port), until its log shows
# READY; another port when it exits first (port taken).
start() {
    ready=$1 && shift
    for try in 1 2 3 4 5; do
        port=$(shuf -i 20000-60999 -n 1)
        "$@" >"$work/$step.server" 2>&1 & pid=$!
        for i in $(seq 50); do
            ! grep -q "$ready" "$work/$step.server" && kill -0 $pid 2>/dev/null && sleep 0.1 || break
        done
        grep -q "$ready" "$work/$step.server" && return 0
        { kill $pid && wait $pid; } 2>/dev/null || true
    done
    fail "no server started"
}

# TLS: openssl s_server for one connection, requiring a client certificate the card's certificate
# verifies; its page (-www) tells the session's protocol, the signature the client made and its
# certificate's verification. openssl s_client (1.3 and 1.2), curl, gnutls-cli.
tlsServer() {
    exec timeout 20 openssl s_server -accept "127.0.0.1:$port" -naccept 1 -www -Verify 1 \
        -CAfile "$work/card.pem" -cert "$work/server.pem" -key "$work/server.key" "$@"
}
request() { printf 'GET / HTTP/1.0\r\n\r\n'; }
for step in s_client-1.3 s_client-1.2 curl gnutls-cli; do
    version=${step#s_client-} && [ "$version" != "$step" ] || version=1.3
    start ACCEPT tlsServer -tls$(echo $version | tr . _)
    case $step in
    s_client*) request | engine s_client -quiet -connect "127.0.0.1:$port" -key "$key" \
        -cert "$work/card.pem" -CAfile "$work/server.pem" -verify_return_error ;;
    curl) timeout 20 curl -sS --engine pkcs11 --key-type ENG --key "$key" --cert "$work/card.pem" \
        --cacert "$work/server.pem" "https://127.0.0.1:$port/" ;;
    gnutls-cli) request | GNUTLS_PIN=123456 timeout 20 gnutls-cli --provider "$module" -p "$port" \
        --x509certfile 'pkcs11:object=Signing%20key;type=cert' \
        --x509keyfile 'pkcs11:object=Signing%20key;type=private' --x509cafile "$work/server.pem" \
        127.0.0.1 ;;
    esac >"$work/$step.client" 2>>"$work/$step.client-errors" || fail "$step failed"
    wait $pid || fail "s_server failed" && pid=
    for line in "New, TLSv$version," "Peer signature type: RSA-PSS" "Verify return code: 0 (ok)" \
        "Subject: CN=p15kit test"; do
        grep -qF "$line" "$work/$step.client" || fail "the server's page lacks \"$line\""
    done
done

# S/MIME: PKCS#1 v1.5 (cms's default) and RSASSA-PSS signatures; cms salts PSS as long as the key
# allows unless told the hash's length, all the card makes.
step=cms
echo "signed on the card" >"$work/message"
for padding in pkcs1 "pss -keyopt rsa_pss_saltlen:digest"; do
    engine cms -sign -inkey "$key" -signer "$work/card.pem" -keyopt rsa_padding_mode:$padding \
        -in "$work/message" -out "$work/${padding%% *}.p7m" || fail "cms -sign ($padding) failed"
    openssl cms -verify -CAfile "$work/card.pem" -in "$work/${padding%% *}.p7m" -out /dev/null 2>&1 |
        tee "$work/$step.verify" | grep -q "Verification successful" || fail "cms -verify ($padding) failed"
done
openssl cms -cmsout -print -in "$work/pss.p7m" | grep -q rsassaPss ||
    fail "no PSS in the S/MIME signature"

# RSASSA-PSS of a hash, salt as long as the hash, verified with the public key.
step=pss
for digest in sha256 sha384 sha512; do
    openssl dgst -$digest -binary -out "$work/$digest" "$work/message"
    pss="-pkeyopt rsa_padding_mode:pss -pkeyopt rsa_pss_saltlen:digest -pkeyopt digest:$digest"
    engine pkeyutl -sign -inkey "$key" $pss -in "$work/$digest" -out "$work/$digest.sig" ||
        fail "PSS signing with $digest failed"
    openssl pkeyutl -verify -pubin -inkey "$work/card-pub.pem" $pss -in "$work/$digest" \
        -sigfile "$work/$digest.sig" >/dev/null || fail "the PSS signature with $digest does not verify"
done

# RSAES-OAEP: a cryptogram deciphers only under its hash, and not with one byte changed.
step=oaep
head -c 32 /dev/urandom >"$work/secret"
decrypt() {
    engine pkeyutl -decrypt -inkey "$key" -pkeyopt rsa_padding_mode:oaep -pkeyopt "rsa_oaep_md:$1" \
        -in "$2" -out "$work/deciphered"
}
for digest in sha1 sha256; do
    openssl pkeyutl -encrypt -pubin -inkey "$work/card-pub.pem" -pkeyopt rsa_padding_mode:oaep \
        -pkeyopt rsa_oaep_md:$digest -in "$work/secret" -out "$work/$digest.bin"
    decrypt $digest "$work/$digest.bin" && cmp -s "$work/secret" "$work/deciphered" ||
        fail "OAEP with $digest does not decipher"
done
! decrypt sha1 "$work/sha256.bin" || fail "an OAEP cryptogram deciphers under another hash"
byte=$(od -An -tu1 -j100 -N1 "$work/sha256.bin")
printf "$(printf '\\%03o' $((byte ^ 1)))" | dd of="$work/sha256.bin" bs=1 seek=100 conv=notrunc 2>/dev/null
! decrypt sha256 "$work/sha256.bin" || fail "a changed OAEP cryptogram deciphers"

# NSS: the module added to a fresh database lists the card's certificate under the token's label,
# and has the card make a key pair for a certificate request, named by CKA_ID afterwards: one new
# pair, a request that verifies. p11tool (GnuTLS) renames a key. On a copy.
step=nss
cp "$work/card.json" "$work/nss.json" && export P15KIT_PKCS11_CARD="$work/nss.json"
privateKeys() { GNUTLS_PIN=123456 p11tool --provider "$module" --login --list-privkeys "pkcs11:"; }
mkdir "$work/nss" && certutil -N -d "sql:$work/nss" --empty-password
modutil -dbdir "sql:$work/nss" -add p15kit -libfile "$module" -force >/dev/null
certutil -L -h all -d "sql:$work/nss" | tee "$work/$step.list" | grep -q 'p15kit virtual card:Signing key' ||
    fail "certutil lists no certificate"
echo 123456 >"$work/pin" && head -c 64 /dev/urandom >"$work/noise"
before=$(privateKeys | grep -c 'type=private')
certutil -R -k rsa -g 2048 -s "CN=p15kit request" -d "sql:$work/nss" -h "p15kit virtual card" \
    -f "$work/pin" -z "$work/noise" -o "$work/request.der" >"$work/$step.request" 2>&1 ||
    fail "certutil -R failed"
[ "$(privateKeys | grep -c 'type=private')" -eq $((before + 1)) ] || fail "not one new key pair"
openssl req -verify -noout -inform DER -in "$work/request.der" >/dev/null 2>&1 ||
    fail "openssl does not verify the request certutil made on the card"
GNUTLS_PIN=123456 p11tool --provider "$module" --login --set-label Renamed \
    "pkcs11:object=Signing%20key;type=private" >/dev/null 2>&1 || fail "p11tool cannot rename a key"
privateKeys | grep -q 'object=Renamed;type=private' || fail "p11tool lists no renamed key"

# ssh: rsa-sha2-256 and rsa-sha2-512 from the card, the PIN through SSH_ASKPASS.
step=ssh
export P15KIT_PKCS11_CARD="$work/card.json"
[ "$(id -u)" -eq 0 ] && [ -x /usr/sbin/sshd ] ||
    { echo "skipped: ssh needs root and /usr/sbin/sshd to start a daemon of its own"; exit 77; }
ssh-keygen -q -t ed25519 -N '' -f "$work/host_key"
ssh-keygen -D "$module" >"$work/authorized_keys"
printf '#!/bin/sh\necho 123456\n' >"$work/askpass" && chmod +x "$work/askpass"
mkdir -p /run/sshd
sshd() {
    exec timeout 30 /usr/sbin/sshd -D -e -f /dev/null -o "ListenAddress=127.0.0.1:$port" \
        -o "HostKey=$work/host_key" -o "AuthorizedKeysFile=$work/authorized_keys" -o StrictModes=no \
        -o UsePAM=no -o PidFile=none -o AuthenticationMethods=publickey \
        -o PubkeyAcceptedAlgorithms=rsa-sha2-256,rsa-sha2-512
}
start "Server listening" sshd
echo "[127.0.0.1]:$port $(cat "$work/host_key.pub")" >"$work/known_hosts"
for algorithm in rsa-sha2-256 rsa-sha2-512; do
    SSH_ASKPASS="$work/askpass" SSH_ASKPASS_REQUIRE=force timeout 20 setsid -w \
        ssh -F none -I "$module" -o PubkeyAcceptedAlgorithms=$algorithm -o BatchMode=no \
        -o IdentityAgent=none -o PreferredAuthentications=publickey -o StrictHostKeyChecking=yes \
        -o "UserKnownHostsFile=$work/known_hosts" -p "$port" root@127.0.0.1 true \
        </dev/null >"$work/$step.client" 2>&1 || fail "ssh with $algorithm failed"
done
[ "$(grep -c 'Accepted publickey for root' "$work/$step.server")" -eq 2 ] ||
    fail "sshd did not accept the card's key twice"
echo "every client logs in with the card"
