# Zorvex: `make` builds everything, `make test` builds and runs every test, `make run` renders the
# sample picture. Each installs what is missing first.
JOBS ?= $(shell nproc)
NATIVE := build
WASM := build-wasm
EMENV := NODE_PATH=/usr/share/nodejs
SAMPLE_OUT ?= $(CURDIR)/build/sample-out.png

.PHONY: all deps native wasm test test-native test-wasm run bench clean

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

test: test-native test-wasm
	@echo "All tests passed (native and WebAssembly)."

run: native
	$(NATIVE)/zorvex render --sample -o $(SAMPLE_OUT)

bench: native
	$(NATIVE)/zorvex_bench

clean:
	rm -rf $(NATIVE) $(WASM)
