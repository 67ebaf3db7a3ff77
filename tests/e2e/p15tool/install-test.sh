#!/bin/sh
# The installation staged in a DESTDIR: the installed p15tool, its manual page and completion, and
# the installed plugin it loads. Usage: install-test.sh BUILD_DIR
set -eu
build=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
fail() { echo "$*"; exit 1; }

DESTDIR=$stage cmake --install "$build" >/dev/null
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
root=$stage$prefix
for tool in p15tool p15-vcard p15-vcard-serve; do
    test -x "$root/bin/$tool" || fail "not installed: bin/$tool"
done
man=$root/share/man/man1/p15tool.1
test -f "$man" || fail "not installed: share/man/man1/p15tool.1"
test -z "$(groff -man -ww -z "$man" 2>&1)" || fail "$(groff -man -ww -z "$man" 2>&1)"
completed=$(PATH=$root/bin:$PATH bash -c '. "$1"; COMP_WORDS=(p15tool key ""); COMP_CWORD=2
    _p15tool; echo "${COMPREPLY[*]}"' sh "$root/share/bash-completion/completions/p15tool")
test "$completed" = "import export delete" || fail "completion of 'key': $completed"
plugin=$(find "$root" -path '*/p15kit/libp15app.so')
test -n "$plugin" || fail "not installed: p15kit/libp15app.so"

card=$stage/card.json
P=2468 "$root/bin/p15tool" --card "$card" init --pin-env P --puk-env P --so-pin-env P >/dev/null
"$root/bin/p15tool" --card "$card" --json info | grep -q '"aid": "A000000063504B43532D3135"' ||
    fail "the installed p15tool did not reach the application"
# Without the installed plugin the tool fails, not falling back to the build tree.
mv "$plugin" "$plugin.away"
! "$root/bin/p15tool" --card "$card" info >/dev/null 2>&1 ||
    fail "the installed p15tool loaded a plugin other than the installed one"
echo "installed under $prefix and working"
