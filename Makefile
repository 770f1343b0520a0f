# Entry points for a fresh Debian 12 machine; each one installs what it needs.
#   make test    set up, build, run every test
#   make demo    set up, build, run the tools on the bundled examples
#   make demo-pictures   the flame graphs of examples/traced_app as PNG (chromium)
#   make bench   set up (with the peers), build in Release, run the benchmarks
#                (the node peers: bench/peers/install.sh; without npm their rows skip)
#   make fuzz    set up clang, build the fuzz targets, run each FUZZ_SECONDS
#   make check-valgrind   test programs under valgrind memcheck
#   make test-windows     set up MinGW-w64 and wine64, build both Windows targets,
#                         run the 64-bit suite under wine64
#   make package-windows  a zip per Windows target: DLL, import library, .def,
#                         headers, CMake package files and the tools
#   make bench-windows    bench/portable for Linux and for Windows under wine64,
#                         side by side
JOBS ?= $(shell nproc)
CMAKE_ARGS ?=
MAKEFLAGS += --no-print-directory

.PHONY: all setup build test demo demo-pictures bench fuzz check-valgrind test-windows \
  package-windows bench-windows clean
all: build

setup:
	@scripts/setup.sh

build: setup
	cmake --preset default $(CMAKE_ARGS)
	cmake --build --preset default -j $(JOBS)

test: build
	ctest --preset default -j $(JOBS)

# With the MinGW-w64 toolchain and wine64 present, the demo ends with the
# Windows build under wine64.
demo: build
	@if command -v x86_64-w64-mingw32-g++-posix >/dev/null && [ -x /usr/lib/wine/wine64 ]; then \
	  cmake --preset windows-x64 $(CMAKE_ARGS) >/dev/null && \
	  cmake --build --preset windows-x64 -j $(JOBS) --target tvbase_cli logtune traced_app >/dev/null && \
	  scripts/demo.sh build/default build/windows-x64; \
	else scripts/demo.sh build/default; fi

test-windows:
	@scripts/setup.sh windows
	@JOBS=$(JOBS) scripts/test-windows.sh $(CMAKE_ARGS)

package-windows:
	@scripts/setup.sh windows
	@JOBS=$(JOBS) scripts/package-windows.sh $(CMAKE_ARGS)

bench-windows:
	@scripts/setup.sh windows
	@JOBS=$(JOBS) scripts/bench-windows.sh $(CMAKE_ARGS)

demo-pictures: build
	@scripts/setup.sh pictures
	@scripts/demo-pictures.sh build/default

bench:
	@scripts/setup.sh bench
	@bench/peers/install.sh || echo "make bench: node peers not installed; their rows are skipped"
	cmake --preset bench $(CMAKE_ARGS)
	cmake --build --preset bench -j $(JOBS)
	@scripts/bench.sh build/bench

# Runs every fuzz target for FUZZ_SECONDS each (default 60).
FUZZ_SECONDS ?= 60
fuzz:
	@scripts/setup.sh fuzz
	cmake --preset fuzz $(CMAKE_ARGS)
	cmake --build --preset fuzz -j $(JOBS)
	@scripts/fuzz.sh build/fuzz $(FUZZ_SECONDS)

# The trace and form tests (by default) under valgrind memcheck.
VALGRIND_TESTS ?= tvbase_trace_test tvbase_form_test
check-valgrind: build
	@scripts/setup.sh valgrind
	@scripts/valgrind.sh build/default $(VALGRIND_TESTS)

clean:
	rm -rf build
