# The two entry points: `make run` and `make test`. Everything else is a helper.
BUILD ?= build
ASAN_BUILD ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?= model text jsgf binary mmap expression arpa ngram_packed ngram_binary network

.PHONY: all setup build build-asan run test test-release test-asan bench bench-micro install format clean fuzz readme

all: build

setup:
	@scripts/setup.sh

build: setup
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)

build-asan: setup
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DT2SFST_SANITIZE=ON \
	  -DT2SFST_BENCHMARKS=OFF $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# The main job: build the example grammars' models and apply them to sample lines.
run: build
	@examples/demo.sh $(BUILD)/tools/t2sfst $(BUILD)/examples

# Every test in the optimised build, then again under AddressSanitizer + UBSan.
test: test-release test-asan

test-release: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-asan: build-asan
	cd $(ASAN_BUILD) && ASAN_OPTIONS=abort_on_error=0:detect_leaks=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j $(JOBS)

# Each fuzz target (clang, libFuzzer, ASan + UBSan) for FUZZ_SECONDS, starting from the checked-in
# corpus; new inputs go to build-fuzz/corpus, findings to build-fuzz/findings.
fuzz:
	@T2SFST_NEED_CLANG=1 scripts/setup.sh
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DT2SFST_FUZZ=ON -DT2SFST_SANITIZE=ON -DT2SFST_TESTS=OFF -DT2SFST_BENCHMARKS=OFF
	cmake --build $(FUZZ_BUILD) -j $(JOBS) $(addprefix --target fuzz_,$(FUZZ_TARGETS))
	@for t in $(FUZZ_TARGETS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus/$$t $(FUZZ_BUILD)/findings/$$t; \
	  echo "== fuzz_$$t for $(FUZZ_SECONDS) s"; \
	  ASAN_OPTIONS=detect_leaks=0 $(FUZZ_BUILD)/fuzz/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) \
	    -rss_limit_mb=2048 -timeout=10 -max_len=8192 -close_fd_mask=2 -print_final_stats=1 \
	    -artifact_prefix=$(FUZZ_BUILD)/findings/$$t/ $(FUZZ_BUILD)/corpus/$$t fuzz/corpus/$$t \
	    || exit 1; \
	done

# Against the peers on realistic shapes (libfst-tools and sphinxbase-utils, when installed): the
# optimisation pipeline at growing sizes, the model builder and runtime on phrases with distinct
# written forms over real words (against a hash map), a trigram model of 2x10^6 n-grams, a CMU
# dictionary lexicon composed with a bigram model; bench-micro: the library's micro-benchmarks.
bench: build
	@T2SFST_NEED_BENCH=1 scripts/setup.sh
	bench/scale_bench.sh $(BUILD)
	bench/realistic_model_bench.sh $(BUILD)
	bench/ngram_vs_peer.sh $(BUILD)
	bench/lexicon_bigram_vs_peer.sh $(BUILD)
	bench/itn_bench.sh $(BUILD)

bench-micro: build
	$(BUILD)/bench/t2sfst_bench

install: build
	cmake --install $(BUILD)

format:
	clang-format -i $$(git ls-files '*.h' '*.cc')

# The README's command section is the help pages; this rewrites it after a help text changes.
readme: build
	scripts/readme_commands.sh $(BUILD)/tools/t2sfst README.md

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
