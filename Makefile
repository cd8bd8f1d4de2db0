# Zorvex: `make` builds everything, `make test` builds and runs every test, `make run` builds
# everything and serves the web app on localhost, `make install PREFIX=...` installs the command, its
# manual page and the web app. Each installs what is missing first.
JOBS ?= $(shell nproc)
NATIVE := build
WASM := build-wasm
FUZZ := build-fuzz
SANITIZE := build-asan
FUZZ_TIME ?= 3600
EMENV := NODE_PATH=/usr/share/nodejs
SAMPLE_OUT ?= $(CURDIR)/build/sample-out.png
PORT ?= 8080
PREFIX ?= /usr/local
NPM_STAMP := web/node_modules/.package-lock.json

.PHONY: all deps native wasm web test test-native test-wasm test-web test-fuzz test-sanitize fuzz-build fuzz-jpeg \
  run sample bench bench-web install clean

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
# engine module from the WebAssembly build and renders the user's guide's pictures with build/zorvex.
# npm ci refuses a lock file that lacks other platforms' optional packages, which a registry mirror
# without them leaves out; npm install then takes the same locked versions and skips those.
$(NPM_STAMP): web/package.json web/package-lock.json
	cd web && (npm ci --no-audit --no-fund >/dev/null 2>&1 || npm install --no-audit --no-fund --no-save)

web: native wasm $(NPM_STAMP)
	cd web && node node_modules/typescript/bin/tsc --noEmit -p . && node node_modules/vite/bin/vite.js build --logLevel warn

test-native: native
	cd $(NATIVE) && ctest --output-on-failure

test-wasm: wasm
	cd $(WASM) && $(EMENV) ctest --output-on-failure

# The web app's logic and its engine module under Vitest, then the app end to end in Chromium (the
# screenshots land in build/e2e-screenshots).
test-web: web native
	cd web && node node_modules/vitest/vitest.mjs run
	cd web && node --test e2e/app.test.mjs e2e/arrange.test.mjs e2e/menu.test.mjs e2e/tours.test.mjs e2e/look.test.mjs

test: test-native test-wasm test-sanitize test-fuzz test-web
	@echo "All tests passed (native, WebAssembly, sanitizers, fuzzing and web)."

# The core's and the command line's suites again, built with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer in their own folder (the command line the native tests run included).
$(SANITIZE)/CMakeCache.txt:
	CXX=clang++ cmake -S . -B $(SANITIZE) -DCMAKE_BUILD_TYPE=None -DZORVEX_SANITIZE=ON

test-sanitize: deps $(SANITIZE)/CMakeCache.txt
	cmake --build $(SANITIZE) -j $(JOBS) --target zorvex zorvex_core_tests zorvex_native_tests
	cd $(SANITIZE) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure

# The fuzz targets build with clang and the sanitizers in their own folder. Each reads outside input:
# the JPEG decoder, the binary property-list reader, the control-file parser, the defaults file's way
# to the effect list, the picture files of the command line (PNG and JPEG through libpng and
# libjpeg), and looks (as text, and in a picture's XMP). tests/fuzz/corpus/TARGET holds the corpus
# grown by their long runs, as seeds.
FUZZ_TARGETS := jpeg_decoder plist_reader controls_parse defaults_load image_load look_read
FUZZ_SECONDS_jpeg_decoder := 40
FUZZ_SECONDS_plist_reader := 20
FUZZ_SECONDS_controls_parse := 10
FUZZ_SECONDS_defaults_load := 20
FUZZ_SECONDS_image_load := 30
FUZZ_SECONDS_look_read := 20
FUZZ_SEEDS_plist_reader := plists
FUZZ_SEEDS_defaults_load := plists
FUZZ_SEEDS_controls_parse := controls
FUZZ_SEEDS_image_load := pictures
FUZZ_SEEDS_look_read := looks
FUZZ_FLAGS := -timeout=10 -rss_limit_mb=2048 -artifact_prefix=$(FUZZ)/artifacts/

$(FUZZ)/CMakeCache.txt:
	CXX=clang++ cmake -S tests/fuzz -B $(FUZZ) -DCMAKE_BUILD_TYPE=None

fuzz-build: deps $(FUZZ)/CMakeCache.txt
	cmake --build $(FUZZ) -j $(JOBS)

# Fresh seeds for target $(1) into folder $(2).
fuzz_seed = mkdir -p $(2) && if [ $(1) = jpeg_decoder ]; then $(FUZZ)/jpeg_fuzz_seeds $(2); \
  else $(FUZZ)/fuzz_seeds $(FUZZ_SEEDS_$(1)) $(2); fi >/dev/null

# A bounded run of each target, part of `make test`: new inputs go to a scratch folder, the kept
# corpus is only read.
define fuzz_test_rule
test-fuzz-$(1): fuzz-build
	rm -rf $(FUZZ)/corpus-test/$(1) && mkdir -p $(FUZZ)/artifacts tests/fuzz/corpus/$(1)
	$(call fuzz_seed,$(1),$(FUZZ)/corpus-test/$(1))
	$(FUZZ)/$(1)_fuzz -max_total_time=$(FUZZ_SECONDS_$(1)) $(FUZZ_FLAGS) \
	  $(FUZZ)/corpus-test/$(1) tests/fuzz/corpus/$(1) > $(FUZZ)/fuzz-test-$(1).log 2>&1 \
	  || { tail -40 $(FUZZ)/fuzz-test-$(1).log; echo "fuzzing $(1) failed: $(FUZZ)/artifacts/"; exit 1; }
	@echo "$(1): $$$$(grep -h '^Done' $(FUZZ)/fuzz-test-$(1).log)"
endef
$(foreach t,$(FUZZ_TARGETS),$(eval $(call fuzz_test_rule,$(t))))

test-fuzz: $(addprefix test-fuzz-,$(FUZZ_TARGETS))

# A long run of one target (make fuzz-TARGET; FUZZ_TIME seconds, default an hour) whose corpus grows
# in $(FUZZ)/corpus/TARGET from run to run; make fuzz-keep-TARGET then merges it, minimised, into the
# kept corpus.
fuzz-%: fuzz-build
	$(call fuzz_seed,$*,$(FUZZ)/corpus/$*)
	mkdir -p $(FUZZ)/artifacts tests/fuzz/corpus/$*
	$(FUZZ)/$*_fuzz -max_total_time=$(FUZZ_TIME) $(FUZZ_FLAGS) $(FUZZ)/corpus/$* tests/fuzz/corpus/$*

fuzz-keep-%: fuzz-build
	mkdir -p tests/fuzz/corpus/$*
	$(FUZZ)/$*_fuzz -merge=1 $(FUZZ_FLAGS) tests/fuzz/corpus/$* $(FUZZ)/corpus/$*

run: all
	$(NATIVE)/zorvex serve --port $(PORT)

sample: native
	$(NATIVE)/zorvex render --sample -o $(SAMPLE_OUT)

bench: native
	$(NATIVE)/zorvex_bench

# Frames per second of the live feed and the time of a 12-megapixel final, in Chromium.
bench-web: all
	cd web && node e2e/bench.mjs

# PREFIX/bin/zorvex, PREFIX/share/man/man1/zorvex.1 and the web app in PREFIX/share/zorvex/web
# (DESTDIR=... in the environment stages it elsewhere).
install: all
	cmake --install $(NATIVE) --prefix $(PREFIX)

clean:
	rm -rf $(NATIVE) $(WASM) $(FUZZ) $(SANITIZE) web/dist
