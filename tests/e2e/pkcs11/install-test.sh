#!/bin/sh
# Stages the installation in a DESTDIR and checks the module's part of it:
# the p11-kit module file names the installed module, and the installed
# module loads the installed plugin (not the build tree's).
# Usage: install-test.sh BUILD_DIR P15TOOL
set -eu
build=$1
p15tool=$2
command -v p11tool >/dev/null || { echo "skipped: p11tool not installed"; exit 77; }
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT

DESTDIR=$stage cmake --install "$build" >/dev/null
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
module_file=$(find "$stage" -path '*/p11-kit/modules/p15kit.module')
test -n "$module_file" || { echo "not installed: p11-kit/modules/p15kit.module"; exit 1; }
module=$(sed -n 's/^module: //p' "$module_file")
case $module in
"$prefix"/*) ;;
*) echo "the module file names $module, outside $prefix"; exit 1 ;;
esac
test -f "$stage$module" || { echo "the module file names $module, which is not installed"; exit 1; }

sh "$(dirname "$0")/make-test-card.sh" "$p15tool" "$stage/card.json" "$stage"
plugin=$(find "$stage$prefix" -path '*/p15kit/libp15app.so')
P15KIT_PKCS11_CARD=$stage/card.json P15KIT_PKCS11_PCSC=off \
    p11tool --provider "$stage$module" --list-tokens | grep -q 'p15kit virtual card' ||
    { echo "the installed module shows no token"; exit 1; }
mv "$plugin" "$plugin.away"
if P15KIT_PKCS11_CARD=$stage/card.json P15KIT_PKCS11_PCSC=off \
    p11tool --provider "$stage$module" --list-tokens 2>/dev/null | grep -q 'p15kit virtual card'; then
    echo "the installed module loaded a plugin other than the installed one"
    exit 1
fi
echo "module installed under $prefix, module file $module_file"
