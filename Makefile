# Entry points for a newcomer: `make run` shows the viewer with a simulated camera, `make test`
# runs every test. Both install whatever Debian packages are missing first.

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)

.PHONY: all deps configure build run test bench format format-check clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@scripts/run.sh $(BUILD_DIR)

test: build format-check
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 300
	@JOBS=$(JOBS) scripts/test-sanitized.sh

bench: build
	@cmake --build $(BUILD_DIR) --target bench -j $(JOBS)

format:
	@scripts/format.sh fix

format-check: deps
	@scripts/format.sh check

clean:
	@rm -rf $(BUILD_DIR)
