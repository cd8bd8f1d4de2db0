# Zorvex: `make` builds everything, `make test` builds and runs every test, `make run` builds
# everything and serves the web app on localhost. Each installs what is missing first.
JOBS ?= $(shell nproc)
NATIVE := build
WASM := build-wasm
EMENV := NODE_PATH=/usr/share/nodejs
SAMPLE_OUT ?= $(CURDIR)/build/sample-out.png
PORT ?= 8080
NPM_STAMP := web/node_modules/.package-lock.json

.PHONY: all deps native wasm web test test-native test-wasm test-web run sample bench bench-web clean

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
$(NPM_STAMP): web/package.json web/package-lock.json
	cd web && npm ci --no-audit --no-fund

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
	cd web && node --test e2e/app.test.mjs

test: test-native test-wasm test-web
	@echo "All tests passed (native, WebAssembly and web)."

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
	rm -rf $(NATIVE) $(WASM) web/dist
