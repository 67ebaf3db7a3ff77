#!/bin/bash
# Turns the sample .hex files (comment lines starting with #, then hex) into
# binary seed inputs: hex-to-corpus.sh [samples dir] <corpus dir>
# The samples default to the project's own copy in tests/data/samples.
set -euo pipefail
if [ $# -eq 1 ]; then
    samples=$(dirname "$0")/../tests/data/samples
    corpus=$1
else
    samples=$1
    corpus=$2
fi
mkdir -p "$corpus"
for sample in "$samples"/*.hex; do
    digits=$(sed -e '/^#/d' -e 's/[^0-9A-Fa-f]//g' "$sample" | tr -d '\n')
    printf "$(printf '%s' "$digits" | sed 's/../\\x&/g')" >"$corpus/$(basename "$sample" .hex).bin"
done
