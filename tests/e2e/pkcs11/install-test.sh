#!/bin/sh
# Stages the installation in a DESTDIR: the p11-kit module file names the installed module, which
# loads the installed plugin (not the build tree's). Usage: install-test.sh BUILD_DIR P15TOOL
set -eu
build=$1
command -v p11tool >/dev/null || { echo "skipped: p11tool not installed"; exit 77; }
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
fail() { echo "$*"; exit 1; }

DESTDIR=$stage cmake --install "$build" >/dev/null
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
module_file=$(find "$stage" -path '*/p11-kit/modules/p15kit.module')
module=$(sed -n 's/^module: //p' "${module_file:-/dev/null}")
case $module in "$prefix"/*) ;; *) fail "the module file names \"$module\", not one under $prefix" ;; esac
test -f "$stage$module" || fail "the module file names $module, which is not installed"

sh "$(dirname "$0")/make-test-card.sh" "$2" "$stage/card.json" "$stage"
tokens() { P15KIT_PKCS11_CARD=$stage/card.json P15KIT_PKCS11_PCSC=off \
    p11tool --provider "$stage$module" --list-tokens 2>/dev/null | grep -q 'p15kit virtual card'; }
tokens || fail "the installed module shows no token"
plugin=$(find "$stage$prefix" -path '*/p15kit/libp15app.so')
mv "$plugin" "$plugin.away"
! tokens || fail "the installed module loaded a plugin other than the installed one"
echo "module installed under $prefix, module file $module_file"
