#!/bin/bash
# Turns the sample .hex files (comment lines starting with #, then hex) into
# binary seed inputs: hex-to-corpus.sh <samples dir> <corpus dir>
set -euo pipefail
samples=$1
corpus=$2
mkdir -p "$corpus"
for sample in "$samples"/*.hex; do
    digits=$(sed -e '/^#/d' -e 's/[^0-9A-Fa-f]//g' "$sample" | tr -d '\n')
    printf "$(printf '%s' "$digits" | sed 's/../\\x&/g')" >"$corpus/$(basename "$sample" .hex).bin"
done
