#!/bin/bash
# Turns the sample .hex files (comment lines starting with #, then hex) into
# binary seed inputs: hex-to-corpus.sh [--file-prefix] <samples dir> <corpus dir>
# With --file-prefix each seed starts with the byte by which the app_files
# target picks the file the sample is (ODF 0, TokenInfo 1, PrKDF 2, PuKDF 3,
# CDF 4, DODF 5, AODF 6); samples of other files are left out.
set -euo pipefail
prefix=false
if [ "${1:-}" = --file-prefix ]; then
    prefix=true
    shift
fi
samples=$1
corpus=$2
mkdir -p "$corpus"
kinds=(odf tokeninfo prkdf pukdf cdf dodf aodf)
for sample in "$samples"/*.hex; do
    name=$(basename "$sample" .hex)
    lead=
    if $prefix; then
        kind=${name##*[_-]}
        for i in "${!kinds[@]}"; do
            [ "${kinds[$i]}" = "$kind" ] && lead=$(printf '%02x' "$i")
        done
        [ -n "$lead" ] || continue
    fi
    digits=$lead$(sed -e '/^#/d' -e 's/[^0-9A-Fa-f]//g' "$sample" | tr -d '\n')
    printf "$(printf '%s' "$digits" | sed 's/../\\x&/g')" >"$corpus/$name.bin"
done
