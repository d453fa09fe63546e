# The names people rely on. Each installs what it needs first (Debian packages, through
# apt as root or sudo) and is quick when nothing is missing.
PRESET ?= release
PREFIX ?= /usr/local
BUILD := build/$(PRESET)

.PHONY: run test build bench lint fuzz deps install clean

# Builds the command and shows it at work on the example installation.
run: build
	@examples/run.sh $(BUILD)

build: deps
	@cmake --preset $(PRESET) $(CMAKE_ARGS) >$(BUILD).configure.log 2>&1 || { cat $(BUILD).configure.log; exit 1; }
	@cmake --build --preset $(PRESET)

test: build
	@ctest --preset $(PRESET)

bench:
	@tools/install-packages build test bench
	@$(MAKE) --no-print-directory build CMAKE_ARGS=-DHALVORIA_BENCH=ON
	@bench/run.sh $(BUILD)

# Formatting, layering, public headers on their own, static analysis.
lint:
	@tools/install-packages build test lint
	@$(MAKE) --no-print-directory build
	@tools/lint $(BUILD)

# Runs each fuzz target for FUZZ_SECONDS; new inputs go to build/fuzz/corpus.
FUZZ_SECONDS ?= 60
fuzz:
	@tools/install-packages build fuzz
	@tools/run-fuzzers $(FUZZ_SECONDS)

deps:
	@mkdir -p build
	@tools/install-packages build test

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	@rm -rf build
