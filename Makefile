# The names people rely on. Each installs what it needs first (Debian packages, through
# apt as root or sudo) and is quick when nothing is missing.
PRESET ?= release
PREFIX ?= /usr/local
BUILD := build/$(PRESET)
CONFIGURE = mkdir -p build && { cmake --preset $(PRESET) $(1) >$(BUILD).configure.log 2>&1 || { cat $(BUILD).configure.log; exit 1; }; }

.PHONY: run build all test bench soak lint fuzz deps install clean

# Builds the programs and shows them at work on the example installation.
run: build
	@examples/run.sh $(BUILD)

# The library and the programs, without the tests and what those need.
build:
	@tools/install-packages build
	@$(call CONFIGURE,$$([ -e $(BUILD)/CMakeCache.txt ] || echo -DHALVORIA_TESTS=OFF))
	@cmake --build --preset $(PRESET) --target programs

all: deps
	@$(call CONFIGURE,-DHALVORIA_TESTS=ON $(CMAKE_ARGS))
	@cmake --build --preset $(PRESET)

test: all
	@ctest --preset $(PRESET)

bench:
	@tools/install-packages build test bench
	@$(MAKE) --no-print-directory all CMAKE_ARGS=-DHALVORIA_BENCH=ON
	@bench/run.sh $(BUILD)

# Two hundred clients of one service for SOAK_SECONDS, one disturbance after the other, which nobody
# may notice. Prints what each of them cost the others.
SOAK_SECONDS ?= 300
soak: build
	@tests/soak/soak.py $(BUILD)/bin/svcfg $(BUILD)/bin/cfg $(SOAK_SECONDS)

# Formatting, layering, public headers on their own, static analysis.
lint:
	@tools/install-packages build test lint
	@$(call CONFIGURE,-DHALVORIA_TESTS=ON)
	@tools/lint $(BUILD)

# Runs each fuzz target for FUZZ_SECONDS; new inputs go to build/fuzz/corpus.
FUZZ_SECONDS ?= 60
FUZZ_BOUND ?= $(FUZZ_SECONDS)
fuzz:
	@tools/install-packages build fuzz
	@tools/run-fuzzers $(FUZZ_BOUND)

deps:
	@tools/install-packages build test

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	@rm -rf build
