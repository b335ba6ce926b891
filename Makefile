# Front door of the project. Every target does its own set-up on a fresh machine.
.PHONY: all deps demo tour test sanitize test-clang tsan fuzz coverage bench install clean

CMAKE ?= cmake
PREFIX ?= /usr/local

all: test

deps:
	@sh cmake/install-deps.sh

build/build.ninja: deps CMakeLists.txt CMakePresets.json
	$(CMAKE) --preset release

# The main job: the sample solver on its default beam; the files go to build/demo.
demo: build/build.ninja
	$(CMAKE) --build --preset release --target qkm-solve
	./build/qkm-solve --out build/demo

# A short tour of single kernel calls and services.
tour: build/build.ninja
	$(CMAKE) --build --preset release --target qkm_demo
	./build/qkm_demo

test: build/build.ninja
	$(CMAKE) --build --preset release
	ctest --preset release

sanitize: deps
	$(CMAKE) --preset sanitize
	$(CMAKE) --build --preset sanitize
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	ctest --preset sanitize

# The whole suite built by clang; the fingerprint of the kernels' results must equal the one
# of the g++ build bit for bit.
test-clang: build/build.ninja
	$(CMAKE) --build --preset release --target test_threads
	./build/tests/test_threads --gtest_brief=1 --gtest_filter='*Fingerprint*'
	$(CMAKE) --preset clang
	$(CMAKE) --build --preset clang
	ctest --preset clang
	cmp build/fingerprint.txt build-clang/fingerprint.txt

# The thread tests under ThreadSanitizer (clang).
tsan: deps
	$(CMAKE) --preset tsan
	$(CMAKE) --build --preset tsan --target test_threads
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ./build-tsan/tests/test_threads

# libFuzzer targets, each run for FUZZ_SECONDS from the seed corpora in fuzz/corpus; new
# inputs collect in build-fuzz/corpus.
FUZZ_SECONDS ?= 120
FUZZ_TARGETS = catalog memory print
fuzz: deps
	$(CMAKE) --preset fuzz
	$(CMAKE) --build --preset fuzz --target $(addprefix fuzz_,$(FUZZ_TARGETS))
	@for t in $(FUZZ_TARGETS); do \
	  echo "== fuzz_$$t ($(FUZZ_SECONDS) s)"; mkdir -p build-fuzz/corpus/$$t; \
	  dict=""; [ -f fuzz/$$t.dict ] && dict="-dict=fuzz/$$t.dict"; \
	  ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 \
	  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	  ./build-fuzz/fuzz/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 -artifact_prefix=build-fuzz/fuzz_$$t- $$dict \
	    build-fuzz/corpus/$$t fuzz/corpus/$$t 2>build-fuzz/fuzz_$$t.log \
	    || { tail -60 build-fuzz/fuzz_$$t.log; exit 1; }; \
	  grep -E "stat::number_of_executed_units|cov:" build-fuzz/fuzz_$$t.log | tail -2; \
	done

# Line and branch coverage of the library code by the test suite (gcc, gcovr), as text and
# as HTML in build-coverage/coverage.html.
coverage: deps
	$(CMAKE) --preset coverage
	$(CMAKE) --build --preset coverage
	find build-coverage -name '*.gcda' -delete
	-ctest --preset coverage
	gcovr --root $(CURDIR) --object-directory build-coverage --filter '$(CURDIR)/(frame|dense|packed|factor|eigen|sparse|spatial|services|platform)/' \
	  --exclude-unreachable-branches --exclude-throw-branches \
	  --html-details build-coverage/coverage.html --print-summary --txt build-coverage/coverage.txt
	@cat build-coverage/coverage.txt | tail -40

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
	rm -rf build build-sanitize build-bench build-clang build-tsan build-fuzz build-coverage
