# Front door of the build. Every target installs what it needs first
# (scripts/install-deps is idempotent and quick when nothing is missing).
BUILD   ?= build
JOBS    ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure test bench bench-e2e sanitize asan tsan fuzz demo models clean format soak

all: configure
	cmake --build $(BUILD) -j$(JOBS)

deps:
	@scripts/install-deps

configure: deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

test: all
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

# The Google Benchmark programs; the end-to-end ones run under bench-e2e.
bench: all
	@set -e; for b in $(BUILD)/bin/bench_*; do \
	  case $$b in *bench_e2e*) continue;; esac; \
	  echo "== $$b"; $$b --benchmark_min_time=0.2; done

# The service end to end against veltohub-sim at 32 Hz (about 90 s), the same
# on plain kernel files (no FUSE), then the instructions per sample of each
# module under callgrind. Not in CI.
bench-e2e: configure
	cmake --build $(BUILD) -j$(JOBS) --target bench_e2e bench_e2e_path bench_e2e_plain veltohub-sim
	$(BUILD)/bin/bench_e2e
	$(BUILD)/bin/bench_e2e_plain
	bench/e2e/instructions.sh $(BUILD)

# ASan+UBSan and TSan builds, each running the whole test suite.
sanitize: asan tsan

asan: deps
	cmake -S . -B build-asan -DVELTO_SANITIZE=address -DVELTO_BUILD_BENCH=OFF
	cmake --build build-asan -j$(JOBS)
	cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j$(JOBS)

tsan: deps
	cmake -S . -B build-tsan -DVELTO_SANITIZE=thread -DVELTO_BUILD_BENCH=OFF
	cmake --build build-tsan -j$(JOBS)
	cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/tsan.supp" ctest --output-on-failure -j$(JOBS)

# An hour of hub time with every gesture, logging, dumps, calibrations,
# master-enable toggles and hub faults; fails when memory or descriptors grow
# or a sample is lost. Not part of the test suite (a few minutes of wall time).
SOAK_ARGS ?= --hub-minutes 60 --speed 20
soak: configure
	cmake --build $(BUILD) -j$(JOBS) --target gaze_soak veltohub-sim
	$(BUILD)/bin/gaze_soak $(SOAK_ARGS)

# The service on the built-in simulator: a guided tour with a simulated wearer.
demo: all
	@scripts/demo

clean:
	rm -rf $(BUILD) build-asan build-tsan build-fuzz

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

# libFuzzer targets, each run for FUZZ_SECONDS (default 60) on a fresh corpus
# seeded from fuzz/corpus/<target> when present.
FUZZ_SECONDS ?= 60
fuzz: deps
	CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DVELTO_FUZZ=ON -DVELTO_BUILD_TESTS=OFF -DVELTO_BUILD_BENCH=OFF -DVELTO_WERROR=OFF
	cmake --build build-fuzz -j$(JOBS)
	@set -e; for f in build-fuzz/bin/fuzz_*; do \
	  name=$$(basename $$f); dir=build-fuzz/corpus/$$name; mkdir -p $$dir; \
	  seeds=""; [ -d fuzz/corpus/$$name ] && seeds=fuzz/corpus/$$name; \
	  echo "== $$name ($(FUZZ_SECONDS) s)"; \
	  st=0; $$f -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 $$dir $$seeds > $$dir.log 2>&1 || st=$$?; \
	  tail -n 12 $$dir.log; [ $$st -eq 0 ] || { echo "$$name failed: see $$dir.log"; exit 1; }; \
	done

# Retrains the detector files under etc/gaze/ from gazesynth corpora with
# fixed seeds (tools/gazetrain/make-models.sh); deterministic for a build.
models: configure
	cmake --build $(BUILD) -j$(JOBS) --target gazesynth gazetrain
	tools/gazetrain/make-models.sh $(BUILD) etc/gaze
