# Terminal Querlin: every target installs what is missing first (Debian packages only).
BUILD_DIR  ?= build
BUILD_TYPE ?= Release
JOBS       ?= $(shell nproc)

.PHONY: all deps configure build run demo test fuzz bench crash soak format clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@if [ ! -f $(BUILD_DIR)/build.ninja ]; then \
		cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE); \
	fi

build: configure
	@cmake --build $(BUILD_DIR) --parallel $(JOBS)

run: build
	$(BUILD_DIR)/querlin-terminal

# The terminal against the simulated market on 127.0.0.1 (no internet needed); SIM_ARGS go to the
# market, e.g. SIM_ARGS="--fault finnhub=429".
demo: build
	@BUILD_DIR=$(BUILD_DIR) scripts/demo

test: build
	@cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen \
		ctest --output-on-failure --no-tests=error --parallel $(JOBS)

# libFuzzer over the reply readers, FUZZ_SECONDS (default 60) per target; not part of `make test`.
fuzz:
	@scripts/fuzz

# The performance figures (README "Performance"): instruction counts under callgrind, memory
# natively; prints each figure with its goal and fails when one misses. Not part of `make test`.
bench: configure
	@scripts/install-deps --bench
	@cmake -S . -B $(BUILD_DIR) -UQRL_HAVE_CALLGRIND_H >/dev/null
	@cmake --build $(BUILD_DIR) --parallel $(JOBS) --target querlin-bench
	@$(BUILD_DIR)/querlin-bench

# The crash-safety run (README "For developers"): 1,000 SIGKILLs of the terminal's saves and 300
# of the account service's pushes, every file and the database checked after each; prints the
# figures and fails on a damaged file. Not part of `make test`, which runs a few dozen kills.
crash: configure
	@BUILD_DIR=$(BUILD_DIR) JOBS=$(JOBS) scripts/crash

# The fault soak (README "For developers"): the terminal offscreen for SOAK_SECONDS (default 600)
# while the simulated market's faults cycle; prints its figures and fails on a miss. Not part of
# `make test`, which runs a 15-second version.
soak: build
	@BUILD_DIR=$(BUILD_DIR) scripts/soak

format:
	@command -v clang-format >/dev/null || { echo "make format needs clang-format (apt-get install clang-format)"; exit 1; }
	@git ls-files -z --cached --others --exclude-standard '*.cpp' '*.h' | xargs -0 -r clang-format -i

clean:
	rm -rf $(BUILD_DIR)
