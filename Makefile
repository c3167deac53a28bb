# Front door: `make run` and `make test` set up the machine, build and go.
PRESET ?= release
BUILD_DIR := build/$(PRESET)
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
# CI builds with warnings as errors.
ifeq ($(CI),true)
WERROR := -DINKHARBOUR_WERROR=ON
endif

.PHONY: all deps configure build run test bench fuzz clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake --preset $(PRESET) $(WERROR) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@bash scripts/run-example.sh $(BUILD_DIR)

# CTEST_ARGS narrows the run, e.g. "-LE libreoffice".
test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) $(CTEST_ARGS)

# Every benchmark, each given the same scratch folder, which keeps the
# generated books between runs.
BENCH_DIR ?= $(or $(TMPDIR),/tmp)/inkharbour-bench
BENCHES := import_bench merge_bench document_bench poll_bench editor_bench

# Timings mean nothing in a debug build: the release preset, whatever PRESET says.
bench:
	@$(MAKE) --no-print-directory build PRESET=release
	@mkdir -p $(BENCH_DIR)
	@set -e; for bench in $(BENCHES); do \
	  echo "== $$bench"; build/release/bench/$$bench $(BENCH_DIR); \
	done

# The libFuzzer targets (fuzz/), built by clang with sanitizers in build/fuzz,
# each run for FUZZ_SECONDS and at most FUZZ_RUNS executions when set;
# FUZZ_TARGETS picks some of docx xlsx document merge round_trip.
FUZZ_SECONDS ?= 60
FUZZ_RUNS ?=
FUZZ_TARGETS ?=

fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build build/fuzz -j $(JOBS) --target fuzzers
	@FUZZ_SECONDS=$(FUZZ_SECONDS) FUZZ_RUNS=$(FUZZ_RUNS) bash fuzz/run.sh build/fuzz $(FUZZ_TARGETS)

clean:
	rm -rf build
