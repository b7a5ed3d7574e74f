# make run   installs what is missing, builds an optimised zove and runs its demo
# make test  installs what is missing, builds with ASan+UBSan and runs every test (CTest), then
#            runs the tests of threaded code again under ThreadSanitizer
# make bench builds the optimised benchmarks and runs them
# make bench-scale runs the long benchmark of stores of 100k to 10M DLs (SIZES=100000,1000000)
# make fuzz  builds the libFuzzer programs with clang (see docs/testing.md)
# make format reformats the sources with the repository's .clang-format

JOBS ?= $(shell nproc)
# The builds run make below this one: without this, every level says which folder it enters.
MAKEFLAGS += --no-print-directory
RELEASE := build/release
ASAN := build/asan
TSAN := build/tsan
FUZZ := build/fuzz

.PHONY: run test bench bench-scale fuzz setup format clean

setup:
	@bash scripts/setup.sh

$(RELEASE)/CMakeCache.txt:
	cmake -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release

$(ASAN)/CMakeCache.txt:
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=Debug -DZOVE_SANITIZE=ON -DZOVE_BENCH=OFF

$(TSAN)/CMakeCache.txt:
	cmake -S . -B $(TSAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZOVE_TSAN=ON -DZOVE_BENCH=OFF

run: setup $(RELEASE)/CMakeCache.txt
	cmake --build $(RELEASE) -j $(JOBS) --target zove_cli zove
	$(RELEASE)/tools/zove/zove demo
	@echo "zove is $(RELEASE)/tools/zove/zove; to call it by name: export PATH=\"$$PWD/$(RELEASE)/tools/zove:\$$PATH\""

test: setup $(ASAN)/CMakeCache.txt $(TSAN)/CMakeCache.txt
	cmake --build $(ASAN) -j $(JOBS)
	cd $(ASAN) && ctest --output-on-failure -j $(JOBS)
	cmake --build $(TSAN) -j $(JOBS) --target tsan_tests
	cd $(TSAN) && ctest --output-on-failure -j $(JOBS) -L threads

bench: setup $(RELEASE)/CMakeCache.txt
	cmake --build $(RELEASE) -j $(JOBS)
	@for b in $(RELEASE)/bench/bench_*; do echo "== $$b"; $$b; done

bench-scale: setup $(RELEASE)/CMakeCache.txt
	cmake --build $(RELEASE) -j $(JOBS) --target scale_store
	$(RELEASE)/bench/scale_store $(if $(SIZES),--sizes=$(SIZES))

fuzz: setup
	cmake -S . -B $(FUZZ) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
	  -DCMAKE_C_COMPILER=clang -DZOVE_SANITIZE=ON -DZOVE_FUZZ=ON -DZOVE_BENCH=OFF
	cmake --build $(FUZZ) -j $(JOBS)

format:
	git ls-files '*.cc' '*.h' | xargs clang-format -i

clean:
	rm -rf build
