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
	$(BUILD_DIR)/src/inkharbour --dump examples/the-lighthouse-keeper.docx

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

bench: build
	$(BUILD_DIR)/bench/import_bench

clean:
	rm -rf build
