# The short commands. Everything they need is installed by `make deps`, which each of them calls.

BUILD := build
PRESET := release
JOBS := $(shell nproc)
CONFIG := examples/gateway.toml
MINUTES ?= 10

.PHONY: run test deps build call bench fuzz soak overload lint package asan tsan clean help

help:
	@sed -n 's/^## //p' $(MAKEFILE_LIST)

## make run      install what is missing, build, start the gateway on examples/gateway.toml
run: build
	@$(BUILD)/bin/quorvex-gateway --config $(CONFIG)

## make test     the same set-up, then every test
test: build
	@ctest --test-dir $(BUILD) --output-on-failure --timeout 600

## make deps     install the Debian packages of packages.txt that are missing
deps:
	@./tools/deps

## make build    configure and build the release preset
build: deps
	@cmake --preset $(PRESET) $(CMAKE_ARGS) > $(PRESET)-configure.log || { cat $(PRESET)-configure.log; exit 1; }
	@cmake --build --preset $(PRESET) -j $(JOBS)

## make call     one measured test call to the running gateway, shown as a ladder (URI=sip:echo@127.0.0.1:5060)
call:
	@./tools/call $(URI)

## make asan     unit, component and inbound system tests under AddressSanitizer and UndefinedBehaviorSanitizer
asan:
	@$(MAKE) --no-print-directory sanitize PRESET=asan BUILD=build-asan

## make tsan     unit, component and inbound system tests under ThreadSanitizer
tsan:
	@$(MAKE) --no-print-directory sanitize PRESET=tsan BUILD=build-tsan

.PHONY: sanitize
sanitize: build
	@ctest --test-dir $(BUILD) --output-on-failure --timeout 600 -L 'unit|component|inbound'

## make bench    the benchmarks, one after the other
bench:
	@./tools/deps bench
	@$(MAKE) --no-print-directory build PRESET=bench
	@./tools/bench $(BUILD)

## make soak     mixed traffic over a link that loses, doubles and delays, MINUTES=n (10)
soak: build
	@python3 tests/system/soak.py $(BUILD) --minutes $(MINUTES)

## make overload three times the highest clean rate for two minutes
overload: build
	@python3 bench/overload.py $(BUILD)

## make fuzz     every fuzz target, MINUTES=n altogether (10)
fuzz:
	@$(MAKE) --no-print-directory build PRESET=fuzz
	@./tools/fuzz build-fuzz $(MINUTES)

## make lint     clang-format and clang-tidy over the whole tree
lint: build
	@./tools/lint $(BUILD)

clean:
	@rm -rf build build-asan build-tsan build-fuzz
