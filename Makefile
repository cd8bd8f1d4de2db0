# Zorvex: `make` builds everything, `make test` builds and runs every test, `make run` renders the
# sample picture. Each installs what is missing first.
JOBS ?= $(shell nproc)
NATIVE := build
WASM := build-wasm
FUZZ := build-fuzz
FUZZ_TIME ?= 3600
EMENV := NODE_PATH=/usr/share/nodejs
SAMPLE_OUT ?= $(CURDIR)/build/sample-out.png

.PHONY: all deps native wasm test test-native test-wasm test-fuzz fuzz-build fuzz-jpeg run bench clean

all: deps native wasm

deps:
	@tools/install-deps.sh

$(NATIVE)/CMakeCache.txt:
	cmake -S . -B $(NATIVE) -DCMAKE_BUILD_TYPE=Release

$(WASM)/CMakeCache.txt:
	$(EMENV) emcmake cmake -S . -B $(WASM) -DCMAKE_BUILD_TYPE=Release

native: deps $(NATIVE)/CMakeCache.txt
	cmake --build $(NATIVE) -j $(JOBS)

wasm: deps $(WASM)/CMakeCache.txt
	$(EMENV) cmake --build $(WASM) -j $(JOBS)

test-native: native
	cd $(NATIVE) && ctest --output-on-failure

test-wasm: wasm
	cd $(WASM) && $(EMENV) ctest --output-on-failure

test: test-native test-wasm test-fuzz
	@echo "All tests passed (native and WebAssembly)."

# The fuzz targets build with clang and the sanitizers in their own folder.
$(FUZZ)/CMakeCache.txt:
	CXX=clang++ cmake -S tests/fuzz -B $(FUZZ) -DCMAKE_BUILD_TYPE=None

fuzz-build: deps $(FUZZ)/CMakeCache.txt
	cmake --build $(FUZZ) -j $(JOBS)

# A bounded run of the JPEG decoder's fuzz target from fresh seeds, part of `make test`.
test-fuzz: fuzz-build
	rm -rf $(FUZZ)/corpus-test && mkdir -p $(FUZZ)/corpus-test $(FUZZ)/artifacts
	$(FUZZ)/jpeg_fuzz_seeds $(FUZZ)/corpus-test
	$(FUZZ)/jpeg_decoder_fuzz -max_total_time=40 -timeout=10 -rss_limit_mb=2048 \
	  -artifact_prefix=$(FUZZ)/artifacts/ $(FUZZ)/corpus-test > $(FUZZ)/fuzz-test.log 2>&1 \
	  || { tail -40 $(FUZZ)/fuzz-test.log; echo "JPEG decoder fuzzing failed: $(FUZZ)/artifacts/"; exit 1; }
	@grep -h '^Done' $(FUZZ)/fuzz-test.log

# A long run (FUZZ_TIME seconds, default an hour) whose corpus grows from run to run.
fuzz-jpeg: fuzz-build
	mkdir -p $(FUZZ)/corpus $(FUZZ)/artifacts
	$(FUZZ)/jpeg_fuzz_seeds $(FUZZ)/corpus
	$(FUZZ)/jpeg_decoder_fuzz -max_total_time=$(FUZZ_TIME) -timeout=10 -rss_limit_mb=2048 \
	  -artifact_prefix=$(FUZZ)/artifacts/ $(FUZZ)/corpus

run: native
	$(NATIVE)/zorvex render --sample -o $(SAMPLE_OUT)

bench: native
	$(NATIVE)/zorvex_bench

clean:
	rm -rf $(NATIVE) $(WASM) $(FUZZ)
