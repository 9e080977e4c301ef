# Entry points for a newcomer: `make run` shows the viewer with a simulated camera, `make test`
# runs every test. Both install whatever Debian packages are missing first. `make install`
# installs the programs, menu entry, icons and man pages under PREFIX (and DESTDIR when given);
# `make package` builds build/korvatin-viewlane_VERSION_ARCH.deb.

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local

.PHONY: all deps configure build run test bench format format-check clean install package

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
		-DCMAKE_INSTALL_PREFIX=$(PREFIX) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@scripts/run.sh $(BUILD_DIR)

test: build format-check
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 300
	@JOBS=$(JOBS) scripts/test-sanitized.sh

install: build
	@DESTDIR=$(DESTDIR) cmake --install $(BUILD_DIR)

package: build
	@cd $(BUILD_DIR) && cpack -G DEB

bench: build
	@cmake --build $(BUILD_DIR) --target bench -j $(JOBS)

format:
	@scripts/format.sh fix

format-check: deps
	@scripts/format.sh check

clean:
	@rm -rf $(BUILD_DIR)
