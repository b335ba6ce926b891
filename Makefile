# Front door of the project. Every target does its own set-up on a fresh machine.
.PHONY: all deps demo test sanitize bench install clean

CMAKE ?= cmake
PREFIX ?= /usr/local

all: test

deps:
	@sh cmake/install-deps.sh

build/build.ninja: deps CMakeLists.txt CMakePresets.json
	$(CMAKE) --preset release

demo: build/build.ninja
	$(CMAKE) --build --preset release --target qkm_demo
	./build/qkm_demo

test: build/build.ninja
	$(CMAKE) --build --preset release
	ctest --preset release

sanitize: deps
	$(CMAKE) --preset sanitize
	$(CMAKE) --build --preset sanitize
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	ctest --preset sanitize

bench:
	@sh cmake/install-deps.sh bench
	$(CMAKE) --preset bench
	$(CMAKE) --build --preset bench
	@for b in build-bench/bench/bench_*; do echo "== $$b"; $$b --benchmark_min_time=0.1 --benchmark_repetitions=3 \
		--benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true || exit 1; done

install: build/build.ninja
	$(CMAKE) --build --preset release
	$(CMAKE) --install build --prefix $(PREFIX)

clean:
	rm -rf build build-sanitize build-bench
