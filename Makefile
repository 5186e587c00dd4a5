# The project's front door. Every target first makes sure the Debian packages are there
# (scripts/install-deps is idempotent), then configures and builds with CMake and Ninja.
PRESET ?= ci
BUILD  := build/$(PRESET)
JOBS   ?= $(shell nproc)

.PHONY: all deps configure build test format-check demo bench memcheck fuzz tsan format clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET) -j $(JOBS)

# The suite runs twice, after the format gate: the chosen preset, then an AddressSanitizer + UBSan build with
# leak checking (skip the second with SANITIZE=0).
SANITIZE ?= 1
test: format-check build
	@ctest --preset $(PRESET)
ifeq ($(SANITIZE),1)
ifneq ($(PRESET),dev)
	@cmake --preset dev >/dev/null
	@cmake --build --preset dev -j $(JOBS)
	@ctest --preset dev
endif
endif

demo: build
	@scripts/demo $(BUILD)

# Every case-table row under valgrind memcheck (scripts/memcheck); always
# the ci build, since a sanitizer build cannot run under valgrind.
memcheck: deps
	@cmake --preset ci >/dev/null
	@cmake --build --preset ci -j $(JOBS)
	@scripts/memcheck build/ci

bench: deps
	@cmake --preset release >/dev/null
	@cmake --build --preset release -j $(JOBS)
	@bench/run build/release

# Every fuzz target (clang, libFuzzer, ASan+UBSan) for FUZZ_SECONDS each, FUZZ_JOBS at once.
fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS)
	@fuzz/run build/fuzz

# The suites that run code on more than one thread (the walk's statuses read ahead, the s3
# client's shared connections, isSymlinkFcn's second thread) under ThreadSanitizer. setarch -R
# turns address randomisation off for this run alone: the runtime cannot place its shadow
# memory under the larger randomisation of newer kernels.
tsan: deps
	@cmake --preset tsan >/dev/null
	@cmake --build --preset tsan -j $(JOBS)
	@setarch $$(uname -m) -R ctest --preset tsan

format:
	@git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

# The format gate of make test: every C++ file as clang-format (make format) writes it.
format-check: deps
	@git ls-files '*.cpp' '*.hpp' | xargs clang-format --dry-run -Werror

clean:
	@rm -rf build
