# Thin verbs over the presets of CMakePresets.json; `make help` lists them.
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
DESTDIR ?=
SECONDS_EACH ?= 60
SAMPLE := build/sample/photo.jpg
PHOTO ?= $(SAMPLE)
PUBLISH ?=

export CTEST_PARALLEL_LEVEL := $(JOBS)
export JOBS

.PHONY: build help setup run test arm python test-cluster check tsan bench bench-python wheel fuzz tidy format docs install clean

build: setup ## builds the library and the tools: build/release/bin/peximage (the default)
	@$(call compile,release)

help: ## lists these verbs
	@sed -nE 's/^([a-z-]+):[^#]*## (.*)/  make \1\t\2/p' Makefile | expand -t 18
	@echo "  JOBS=$(JOBS) compiles and tests that many things at once"

setup: ## installs the Debian packages that are missing
	@scripts/setup

run: build $(if $(filter-out $(SAMPLE),$(PHOTO)),,$(SAMPLE)) ## fits a photo into 300 KB: a sample one, or make run PHOTO=path
	@mkdir -p build/sample
	build/release/bin/peximage shrink "$(PHOTO)" -o build/sample/small.jpg --max-side 2000 --max-bytes 300KB

$(SAMPLE): | build
	@mkdir -p $(@D)
	build/release/bin/sample-scene $@

test: setup check ## checks the sources, then tests with gcc, and with clang under sanitizers; short fuzzing
	@$(call compile,release)
	@$(call compile,asan)
	@FUZZ_SEED=1 $(MAKE) --no-print-directory fuzz SECONDS_EACH=5
	@$(MAKE) --no-print-directory python
	ctest --preset asan
	ctest --preset release

arm: setup ## tests the kernels as ARM processors run them, in an emulator
	@scripts/setup scripts/packages-arm.txt
	@[ -f build/arm/build.ninja ] || cmake -S tests/arm -B build/arm -G Ninja -DCMAKE_BUILD_TYPE=Release
	cmake --build build/arm -j $(JOBS)
	ctest --test-dir build/arm --output-on-failure

python: setup ## builds the Python package into build/python/venv and tests it
	python=$$(scripts/python-package) && $$python -m pytest -q python/tests -k 'not cluster'

test-cluster: setup ## tests the Python package under Ray, Dask and Spark, and with an object store, on this machine
	@scripts/setup scripts/packages-cluster.txt
	python=$$(scripts/python-package python/requirements-cluster.txt) && $$python -m pytest -q python/tests/test_cluster.py

check: ## checks the format and the direction of the includes
	scripts/check-format
	scripts/check-dependencies

tsan: setup ## runs all tests under ThreadSanitizer, but for those that replace memory
	@$(call compile,tsan)
	ctest --preset tsan

bench: setup ## measures the headline jobs beside their peers, in one run
	@scripts/setup scripts/packages-bench.txt
	@$(call compile,bench)
	scripts/run-bench

bench-python: setup ## measures the Python package beside Pillow, pyvips and OpenCV, and on a Ray cluster
	@$(MAKE) --no-print-directory $(SAMPLE)
	python=$$(scripts/python-package python/requirements-bench.txt python/requirements-cluster.txt) && \
	  $$python bench/python_bench.py $(SAMPLE) $(PUBLISH) && $$python bench/python_bench.py $(SAMPLE) --ray $(PUBLISH)

wheel: setup ## builds the Python wheel with all libraries inside, in build/wheel/out
	@scripts/setup scripts/packages-wheel.txt
	scripts/python-wheel

fuzz: setup ## runs every fuzz target for a minute, or SECONDS_EACH=n
	@$(call compile,fuzz)
	scripts/run-fuzz $(SECONDS_EACH)

tidy: build ## runs clang-tidy over all sources
	scripts/run-tidy

format: ## formats all sources
	scripts/check-format --fix

docs: setup ## writes the API documentation to build/docs/html
	@scripts/setup scripts/packages-docs.txt
	@mkdir -p build/docs
	PEX_HEADERS="$$(scripts/public-headers | tr '\n' ' ')" doxygen docs/Doxyfile

install: build ## installs under PREFIX=dir (and below DESTDIR=dir)
	DESTDIR="$(DESTDIR)" cmake --install build/release --prefix "$(abspath $(PREFIX))"

clean: ## removes everything that was built
	rm -rf build

# Configures where nothing is configured yet, and builds; the build configures again by itself when need be.
define compile
{ [ -f build/$(1)/build.ninja ] || cmake --preset $(1); } && cmake --build --preset $(1) -j $(JOBS)
endef
