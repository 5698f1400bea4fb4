# The two entry points: `make run` and `make test`. Everything else is a helper.
BUILD ?= build
ASAN_BUILD ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all setup build build-asan run test test-release test-asan bench install format clean

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

bench: build
	$(BUILD)/bench/t2sfst_bench

install: build
	cmake --install $(BUILD)

format:
	clang-format -i $$(git ls-files '*.h' '*.cc')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
