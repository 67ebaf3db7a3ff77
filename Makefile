# Wrapper around CMake/CTest for the everyday commands.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD ?= build
ASAN_BUILD ?= build-asan
CMAKE_FLAGS ?=

.PHONY: deps configure build install demo demo-pcsc plugin-demo check asan-check format

deps:
	scripts/install-deps

configure: deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j$(JOBS)

# Installs into PREFIX (default: the configured prefix, /usr/local); DESTDIR
# stages the installation under another root.
install: build
	cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

# The walk-through of the README on a fresh virtual card in a temporary
# folder: init, info, PIN, key generation, self-signed certificate, signature,
# and openssl's independent check of it.
demo: build
	P15TOOL=$(BUILD)/tools/p15tool/p15tool scripts/demo

# The same with the virtual card in pcscd's "Virtual PCD" reader. pcscd and
# the bridge are started as the tests start them (as root, no systemd) and
# exactly those are stopped afterwards.
demo-pcsc: build
	P15TOOL=$(BUILD)/tools/p15tool/p15tool \
	P15_VCARD_SERVE=$(BUILD)/vcard/p15-vcard-serve \
	P15_PCSC_WAIT=$(BUILD)/tests/unit/vcard/pcsc-wait-card \
	scripts/demo --reader

# The smallest host: loads the plugin through QueryPlugin, connects a fresh
# virtual card and prints its PKCS#15 application.
plugin-demo: build
	$(BUILD)/tools/plugin-demo/p15-plugin-demo

check: build
	ctest --test-dir $(BUILD) --output-on-failure

asan-check: deps
	cmake -S . -B $(ASAN_BUILD) -DP15_SANITIZE=ON -DP15_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD) -j$(JOBS)
	ctest --test-dir $(ASAN_BUILD) --output-on-failure

format:
	git ls-files '*.cpp' '*.hpp' | xargs clang-format -i
