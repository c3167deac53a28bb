# Front door: `make run` and `make test` set up the machine, build and go.
PRESET ?= release
BUILD_DIR := build/$(PRESET)
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
# CI builds with warnings as errors.
ifeq ($(CI),true)
WERROR := -DINKHARBOUR_WERROR=ON
endif

.PHONY: all deps configure build run test bench clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake --preset $(PRESET) $(WERROR) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@bash scripts/run-example.sh $(BUILD_DIR)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

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

clean:
	rm -rf build
