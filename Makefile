# Wrapper around CMake/CTest for the everyday commands.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD ?= build
ASAN_BUILD ?= build-asan
CMAKE_FLAGS ?=

.PHONY: deps configure build install demo demo-pcsc check asan-check format hostile bench

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

demo: build
	$(BUILD)/tools/plugin-demo/p15-plugin-demo

# The demo with the virtual card in pcscd's "Virtual PCD" reader. pcscd and
# the bridge are started as the tests start them (as root, no systemd) and
# exactly those are stopped afterwards.
demo-pcsc: build
	@state=$$(mktemp -d) && \
	P15_VCARD_SERVE=$(BUILD)/vcard/p15-vcard-serve \
	P15_PCSC_WAIT=$(BUILD)/tests/unit/vcard/pcsc-wait-card \
	scripts/pcscd-fixture start $$state && \
	{ $(BUILD)/tools/plugin-demo/p15-plugin-demo --reader "Virtual PCD"; status=$$?; \
	  scripts/pcscd-fixture stop $$state; rm -rf $$state; exit $$status; }

check: build
	ctest --test-dir $(BUILD) --output-on-failure

asan-check: deps
	cmake -S . -B $(ASAN_BUILD) -DP15_SANITIZE=ON -DP15_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD) -j$(JOBS)
	ctest --test-dir $(ASAN_BUILD) --output-on-failure

format:
	git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

# The application over HOSTILE_CASES seeded hostile cards (seeds from
# HOSTILE_FIRST_SEED; P15_HOSTILE_SEED=N replays one).
HOSTILE_CASES ?= 100000
HOSTILE_FIRST_SEED ?= 1
hostile: configure
	cmake --build $(BUILD) -j$(JOBS) --target test_hostile_card
	P15_HOSTILE_CASES=$(HOSTILE_CASES) P15_HOSTILE_FIRST_SEED=$(HOSTILE_FIRST_SEED) \
	  $(BUILD)/tests/reliability/test_hostile_card

# The benchmarks: the Google Benchmark binaries, then the APDU-economy report,
# which rewrites the tables of docs/performance.md and writes its JSON.
bench: build
	for b in $(BUILD)/bench/bench_*; do \
	  case $$b in *apdu_economy) ;; *) $$b --benchmark_min_time=0.2 || exit 1;; esac; \
	done
	$(BUILD)/bench/bench_apdu_economy docs/performance.md $(BUILD)/bench/apdu-economy.json
