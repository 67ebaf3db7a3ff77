#!/bin/sh
# upward-include.sh CXX HEADER ALLOWED NAME=DIRS...
# Compiles a file holding only `#include "HEADER"` with the include
# directories of targets (each list joined by '|'): it must compile with
# ALLOWED's and fail with every NAME's for want of the header.
set -u
cxx=$1 header=$2 allowed=$3
shift 3
# A file of its own in an empty folder: a quoted include is looked for beside
# the file (or, for standard input, in the working directory) first.
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
printf '#include "%s"\n' "$header" >"$folder/include.cpp"

compile() {
    dirs=$1 IFS='|'
    set --
    for dir in $dirs; do set -- "$@" "-I$dir"; done
    unset IFS
    "$cxx" -std=c++17 -fsyntax-only "$@" "$folder/include.cpp" 2>&1
}

output=$(compile "$allowed") || { printf 'FAIL: %s does not compile where it may be included:\n%s\n' "$header" "$output"; exit 1; }
status=0
for target in "$@"; do
    name=${target%%=*}
    if output=$(compile "${target#*=}"); then
        echo "FAIL: $name sees $header" && status=1
    elif ! printf '%s' "$output" | grep -Eq "error: '?$header'?(: No such file| file not found)"; then
        printf 'FAIL: %s fails on something else than %s:\n%s\n' "$name" "$header" "$output" && status=1
    else
        echo "ok: $name does not see $header"
    fi
done
exit $status
