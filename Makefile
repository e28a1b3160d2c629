# A thin front for CMake, the test runners and the scripts; `make help` lists what there is.
# Every target but install and clean installs what it needs by itself (scripts/setup).
SHELL := /bin/bash
.DEFAULT_GOAL := help
MAKEFLAGS += --no-print-directory

PRESET ?= release
# WERROR=ON turns compiler warnings into errors.
WERROR ?= OFF
PREFIX ?= /usr/local
# Seconds for each fuzz target.
SECONDS_EACH ?= 60
# For `make train` and `make evaluate`.
MODEL ?=
DATA ?=
ARGS ?=

export WERROR
PYTHON := .venv/bin/python

.PHONY: help setup build free aarch64 wasm web web-demo web-test bench-web plugins plugin-test packages packages-check site demo test test-all bench \
        bench-server bench-peers bench-corpora soak memcheck fuzz mutants torture evaluate train wheel wheel-test format \
        format-check lint install clean

help: ## Show this list
	@echo "make TARGET, where TARGET is one of"
	@awk -F ':.*## ' '/^[a-z-]+:.*## / {printf "  %-14s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

setup: ## Install what the build needs (Debian packages, .venv)
	@scripts/setup build

build: setup ## Build the library, the command and the tests (PRESET=release)
	@scripts/build $(PRESET)

free: ## Build the library from permissively licensed parts only (build/free), list them
	@scripts/setup free
	@scripts/free

plugins: ## Build and install the LADSPA and LV2 plugins with the models (PREFIX, DESTDIR)
	@scripts/setup plugins
	@scripts/plugins "$(PREFIX)"

plugin-test: ## Build the plugins and test them, in Debian's hosts too
	@scripts/setup plugins hosts test
	@scripts/test plugins

packages: ## Build and check the Debian packages and a relocatable archive, of the free build (build/package/packages)
	@scripts/setup free plugins package
	@scripts/package

packages-check: packages ## Install them on a bare Debian 12, use and remove them (as root)
	@scripts/setup debootstrap
	@scripts/check-packages

aarch64: ## Build the free library for 64-bit ARM Linux, test it under qemu (build/aarch64-linux)
	@scripts/setup free aarch64
	@scripts/machine aarch64-linux

wasm: ## Build the WebAssembly module, test it under node (build/wasm)
	@scripts/setup free wasm
	@scripts/machine wasm

web: ## Build the page and the package for browsers (build/web, ready to be served)
	@scripts/setup wasm
	@scripts/web

web-demo: web ## Serve the page at http://localhost:8000
	@python3 -m http.server --bind localhost --directory build/web 8000

web-test: ## Build them and test them in Chromium
	@scripts/setup free wasm web
	@scripts/web --test

demo: ## Build, clean a noisy recording, draw the spectrograms
	@scripts/setup build demo
	@scripts/build release orvel orvel_cli
	@scripts/demo $(ARGS)

site: demo ## Build the documents as a site, without the network (build/site)
	@scripts/setup site
	@scripts/site

test: ## Build and run every test of the release build, and the documents' examples
	@scripts/setup build test
	@scripts/test release

test-all: ## The same, the tests of the free build, and under the address, undefined-behaviour and thread sanitizers
	@scripts/setup build test
	@scripts/test release free asan-ubsan tsan

bench: ## Measure the stages and whole sessions (ARGS=--help)
	@bench/run $(ARGS)

bench-server: ## Measure how many streams a core serves in time (ARGS=--write; ARGS=60 for a look)
	@bench/run --server $(ARGS)

soak: ## Send a day of audio through 50 sessions that open and close (ARGS=--help)
	@scripts/soak $(ARGS)

memcheck: ## Run every model and the command over short streams under valgrind
	@scripts/setup build memcheck
	@scripts/build release
	@scripts/memcheck

bench-peers: ## Measure cost beside other noise suppressors and voice detectors
	@scripts/setup build evaluate
	@scripts/build release orvel orvel_cli orvel_python
	@$(PYTHON) -m evaluation.peers $(if $(DATA),--data "$(DATA)") $(ARGS)

fuzz: ## Run every fuzz target (SECONDS_EACH=60)
	@scripts/setup build fuzz
	@scripts/fuzz $(SECONDS_EACH)

mutants: ## Put kept faults into the sources, one at a time; the tests must notice each (ARGS=--help)
	@scripts/setup build plugins test
	@scripts/mutants $(ARGS)

torture: ## Send an hour of hard signals through each model, and speech after each (ARGS=--help)
	@scripts/setup build demo extension
	@scripts/build release orvel orvel_python
	@ORVEL_LIBRARY=$(CURDIR)/build/release/liborvel.so.1 $(PYTHON) -m evaluation.torture $(ARGS)

evaluate: ## Quality figures of the shipped models beside others (DATA=folder)
	@scripts/setup build evaluate
	@scripts/build release orvel orvel_cli orvel_python
	@$(PYTHON) -m evaluation $(if $(DATA),--data "$(DATA)") $(ARGS)

train: ## Train a model (MODEL=orvel-16k DATA=folder)
	@test -n "$(MODEL)" -a -n "$(DATA)" || { echo "usage: make train MODEL=NAME DATA=folder; NAME is one of" \
		$(notdir $(basename $(wildcard training/configs/*.toml))) >&2; exit 2; }
	@scripts/setup train
	@$(PYTHON) -m training.train --config "training/configs/$(MODEL).toml" --data "$(DATA)" $(ARGS)

format: ## Format all C, C++ and Python files
	@scripts/setup lint
	@scripts/format

format-check: ## Fail when a file is not formatted
	@scripts/setup lint
	@scripts/format --check

lint: ## Static analysis with clang-tidy and ruff (warnings are errors); check the documents
	@scripts/setup build lint
	@scripts/lint

wheel: ## Build the Python wheel with the free library and five models (build/wheels)
	@scripts/setup free wheel
	@scripts/wheel

wheel-test: wheel ## Install the wheel into an empty environment; run its tests there, Ray and the notebook included
	@scripts/wheel --test

bench-web: ## Measure size and cost of the package in Chromium (ARGS=--write)
	@scripts/setup wasm web
	@scripts/web
	@$(PYTHON) bench/web.py $(ARGS)

bench-corpora: wheel ## Measure the cleaning of corpora beside other packages (ARGS=--help)
	@scripts/setup build test evaluate corpora
	@scripts/wheel --install
	@$(PYTHON) bench/corpora.py --python build/wheel-environment/bin/python $(ARGS)

install: ## Build and install library, headers, models and command (PREFIX, DESTDIR)
	@scripts/install "$(PREFIX)"

clean: ## Remove the build folder (.venv stays)
	@rm -rf build
