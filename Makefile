# Zorvex: `make` builds everything, `make test` builds and runs every test, `make run` builds
# everything and serves the web app on localhost. Each installs what is missing first.
JOBS ?= $(shell nproc)
NATIVE := build
WASM := build-wasm
FUZZ := build-fuzz
FUZZ_TIME ?= 3600
EMENV := NODE_PATH=/usr/share/nodejs
SAMPLE_OUT ?= $(CURDIR)/build/sample-out.png
PORT ?= 8080
NPM_STAMP := web/node_modules/.package-lock.json

.PHONY: all deps native wasm web test test-native test-wasm test-web test-fuzz fuzz-build fuzz-jpeg run sample \
  bench bench-web clean

all: deps native wasm web

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

# The web app: its npm packages from the lock file, then the Vite build into web/dist, which takes the
# engine module from the WebAssembly build.
# npm ci refuses a lock file that lacks other platforms' optional packages, which a registry mirror
# without them leaves out; npm install then takes the same locked versions and skips those.
$(NPM_STAMP): web/package.json web/package-lock.json
	cd web && (npm ci --no-audit --no-fund >/dev/null 2>&1 || npm install --no-audit --no-fund --no-save)

web: wasm $(NPM_STAMP)
	cd web && node node_modules/typescript/bin/tsc --noEmit -p . && node node_modules/vite/bin/vite.js build --logLevel warn

test-native: native
	cd $(NATIVE) && ctest --output-on-failure

test-wasm: wasm
	cd $(WASM) && $(EMENV) ctest --output-on-failure

# The web app's logic and its engine module under Vitest, then the app end to end in Chromium (the
# screenshots land in build/e2e-screenshots).
test-web: web native
	cd web && node node_modules/vitest/vitest.mjs run
	cd web && node --test e2e/app.test.mjs e2e/arrange.test.mjs e2e/look.test.mjs

test: test-native test-wasm test-fuzz test-web
	@echo "All tests passed (native, WebAssembly, fuzzing and web)."

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

run: all
	$(NATIVE)/zorvex serve --port $(PORT)

sample: native
	$(NATIVE)/zorvex render --sample -o $(SAMPLE_OUT)

bench: native
	$(NATIVE)/zorvex_bench

# Frames per second of the live feed and the time of a 12-megapixel final, in Chromium.
bench-web: all
	cd web && node e2e/bench.mjs

clean:
	rm -rf $(NATIVE) $(WASM) $(FUZZ) web/dist
