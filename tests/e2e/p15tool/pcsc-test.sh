#!/bin/sh
# p15tool on the virtual card in pcscd's "Virtual PCD" reader (the pcscd_vcard
# fixture): readers lists the reader with its card, and --reader without a
# name finds that card and reaches its PKCS#15 application.
# Usage: pcsc-test.sh P15TOOL; exit status 77 (skipped) without pcscd.
set -u
tool=$1

readers=$("$tool" --json readers)
status=$?
if [ "$status" -eq 3 ]; then
    echo "pcscd is not running: skipped"
    exit 77
fi
[ "$status" -eq 0 ] || { echo "readers failed with status $status"; exit 1; }
echo "$readers" | grep -q '"cardPresent": true' ||
    { echo "no reader with a card in: $readers"; exit 1; }

info=$("$tool" --reader --json info) || { echo "info through PC/SC failed"; exit 1; }
echo "$info" | grep -q '"reader": "Virtual PCD' || { echo "not the vpcd reader: $info"; exit 1; }
echo "$info" | grep -q '"aid": "A000000063504B43532D3135"' ||
    { echo "no PKCS#15 application in: $info"; exit 1; }
echo "p15tool reached the card through pcscd"
