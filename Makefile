# Wrapper around CMake/CTest for the everyday commands.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
CMAKE_FLAGS ?=

.PHONY: deps configure build install demo demo-pcsc plugin-demo check asan-check format fuzz hostile \
  valgrind bench pkcs11-tsan

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

# The PKCS#11 module's tests (threads signing at once among them) under
# ThreadSanitizer, in build-tsan/.
pkcs11-tsan: deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_CXX_FLAGS=-fsanitize=thread \
	  -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
	  -DP15_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build $(TSAN_BUILD) -j$(JOBS) --target test_pkcs11
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/tests/e2e/pkcs11/test_pkcs11

format:
	git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

# libFuzzer targets, built with clang in a build of their own, each run for
# FUZZ_SECONDS; the executions per target land in $(FUZZ_BUILD)/fuzz/fuzz-stats.txt.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DP15_FUZZ=ON -DP15_BENCH=OFF \
	  -DP15_FUZZ_SECONDS=$(FUZZ_SECONDS) $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD) -j$(JOBS) --target fuzz

# The application over HOSTILE_CASES seeded hostile cards (seeds from
# HOSTILE_FIRST_SEED; P15_HOSTILE_SEED=N replays one).
HOSTILE_CASES ?= 100000
HOSTILE_FIRST_SEED ?= 1
hostile: configure
	cmake --build $(BUILD) -j$(JOBS) --target test_hostile_card
	P15_HOSTILE_CASES=$(HOSTILE_CASES) P15_HOSTILE_FIRST_SEED=$(HOSTILE_FIRST_SEED) \
	  $(BUILD)/tests/reliability/test_hostile_card

# The test suite under valgrind memcheck (VALGRIND_TESTS: a ctest regex, all
# by default). A leak or an invalid access fails the test. Left out: PC/SC and
# installation runs, and the tests that replace free() to look at released
# memory, which valgrind's own allocator cannot share.
VALGRIND_TESTS ?= .
valgrind: build
	ctest --test-dir $(BUILD) --output-on-failure -R '$(VALGRIND_TESTS)' \
	  -E 'pcsc|install|BufferWipe|PinWipe|NoReleasedBlock|reliability\.secrets' \
	  --overwrite MemoryCheckCommand=$$(command -v valgrind) \
	  --overwrite MemoryCheckCommandOptions='--error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite --track-origins=no' \
	  -T memcheck

# The benchmarks: the Google Benchmark binaries, then the APDU-economy report,
# which rewrites the tables of docs/performance.md and writes its JSON.
bench: build
	for b in $(BUILD)/bench/bench_*; do \
	  case $$b in *apdu_economy) ;; *) $$b --benchmark_min_time=0.2 || exit 1;; esac; \
	done
	$(BUILD)/bench/bench_apdu_economy docs/performance.md $(BUILD)/bench/apdu-economy.json
