# Thin driver over CMake. `make demo` and `make test` are the quick start.
BUILD      ?= build
SAN_BUILD  ?= build-sanitize
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
# Seconds each fuzz target runs in `make fuzz`; longer by hand.
FUZZ_SECONDS ?= 10
FUZZERS    := fuzz_stream_frames fuzz_command_framing fuzz_calibration_blocks fuzz_generator_memory fuzz_download_body \
              fuzz_sim_bench fuzz_api_sequence
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps configure build demo test install bench sanitize tsan fuzz clean

all: build

deps:
	@bash scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS) > /dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

demo: build
	@bash scripts/demo $(BUILD)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 300

# Installs under the configured prefix (/usr/local unless CMAKE_ARGS says
# otherwise), or under DESTDIR for staging; as root on the live system it also
# refreshes the linker cache and lets udev apply the units' rule.
install: build
	@DESTDIR="$(DESTDIR)" cmake --install $(BUILD)
	@if [ -z "$(DESTDIR)" ] && [ "$$(id -u)" -eq 0 ]; then \
	  ldconfig; \
	  if command -v udevadm > /dev/null && [ -d /run/udev ]; then \
	    udevadm control --reload-rules && udevadm trigger --subsystem-match=usb --attr-match=idVendor=0403 || true; \
	  fi; \
	fi

bench: deps
	@cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DQOR_BUILD_BENCH=ON -DQOR_BUILD_TESTS=OFF > /dev/null
	@cmake --build $(BUILD)-bench -j $(JOBS) --target qor_bench
	@$(BUILD)-bench/bench/qor_bench $(BENCH_ARGS)

sanitize: deps
	@cmake -S . -B $(SAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQOR_SANITIZE=address,undefined > /dev/null
	@cmake --build $(SAN_BUILD) -j $(JOBS)
	@cd $(SAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j $(JOBS) --timeout 600

tsan: deps
	@cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQOR_SANITIZE=thread > /dev/null
	@cmake --build $(TSAN_BUILD) -j $(JOBS)
	@cd $(TSAN_BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 600

fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQOR_SANITIZE=address,undefined \
	  -DQOR_BUILD_FUZZ=ON -DQOR_BUILD_TESTS=OFF -DQOR_BUILD_APPS=OFF > /dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(FUZZERS)
	@bash scripts/run-fuzzers $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZERS)

clean:
	@rm -rf $(BUILD) $(BUILD)-bench $(SAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
