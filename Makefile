# Two commands set everything up: `make demo` and `make test`.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
RELEASE := build/release
ASAN := build/asan
FUZZ := build/fuzz
BENCH := build/bench
VALGRIND := build/valgrind
FUZZ_SECONDS ?= 60

.PHONY: all bootstrap demo test corpus bench fuzz valgrind clean

all: $(RELEASE)/Makefile
	cmake --build $(RELEASE) -j$(JOBS)

bootstrap:
	@scripts/bootstrap

$(RELEASE)/Makefile:
	cmake -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=OFF

demo: bootstrap $(RELEASE)/Makefile
	cmake --build $(RELEASE) -j$(JOBS)
	scripts/demo $(RELEASE)

test: bootstrap
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=Debug -DQL_SANITIZE=ON -DQL_TESTS=ON
	cmake --build $(ASAN) -j$(JOBS)
	cd $(ASAN) && ctest --output-on-failure -j$(JOBS)

# test_ppd_corpus over every PPD of the driver archives, run as ctest runs
# it (the environment of QL_TEST_ENV) but without its time limit.
corpus: bootstrap
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=Debug -DQL_SANITIZE=ON -DQL_TESTS=ON
	cmake --build $(ASAN) -j$(JOBS) --target test_ppd_corpus
	cd $(ASAN)/tests && QL_PPD_CORPUS=all QLPATH=$(CURDIR)/$(ASAN)/share/qualin \
	  QL_SOURCE_DIR=$(CURDIR) QL_BINARY_DIR=$(CURDIR)/$(ASAN) \
	  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ./test_ppd_corpus

bench: bootstrap
	cmake -S . -B $(BENCH) -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=OFF -DQL_BENCH=ON
	cmake --build $(BENCH) -j$(JOBS)
	@for b in $(BENCH)/bench/bench_*; do [ -x "$$b" ] && QLPATH=$(CURDIR)/$(BENCH)/share/qualin "$$b"; done; true

fuzz: bootstrap
	cmake -S . -B $(FUZZ) -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	      -DCMAKE_BUILD_TYPE=Debug -DQL_SANITIZE=ON -DQL_FUZZ=ON -DQL_TESTS=ON
	cmake --build $(FUZZ) -j$(JOBS) --target $$(cd tests/fuzz && ls fuzz_*.cpp | sed 's/\.cpp$$//')
	@for f in tests/fuzz/fuzz_*.cpp; do n=$$(basename $$f .cpp); c=tests/fuzz/corpus/$${n#fuzz_}; \
	  mkdir -p $(FUZZ)/corpus/$$n; echo "== $$n"; \
	  QLPATH=$(CURDIR)/data $(FUZZ)/tests/$$n -max_total_time=$(FUZZ_SECONDS) $(FUZZ)/corpus/$$n $$c || exit 1; done

# The whole suite under valgrind memcheck, without the sanitizers.
valgrind: bootstrap
	cmake -S . -B $(VALGRIND) -DCMAKE_BUILD_TYPE=Debug -DQL_TESTS=ON -DQL_VALGRIND=ON
	cmake --build $(VALGRIND) -j$(JOBS)
	cd $(VALGRIND) && ctest --output-on-failure -j$(JOBS)

clean:
	rm -rf build demo-*.png
