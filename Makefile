# Thin wrapper over CMake for the two everyday commands:
#   make demo   installs what is missing, builds, runs the example daemon
#               and its client through a short scripted session
#   make test   installs what is missing, builds, runs every test, then
#               runs the whole suite again under ASan and UBSan, and the
#               concurrency tests under TSan
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
ARM_BUILD  ?= build-aarch64
JOBS       ?= $(shell nproc)

# Debian packages the build, the tests and the benchmarks need.
DEB_PACKAGES = cmake make g++ pkg-config binutils iproute2 util-linux procps \
               libgtest-dev libgmock-dev libbenchmark-dev libevent-dev libuv1-dev \
               libadns1-dev dnsmasq-base clang libclang-rt-14-dev lcov valgrind \
               abigail-tools doxygen python3 gnuplot-nox clang-tidy clang-format \
               man-db groff-base

# Installs those of the Debian packages $(1) that are missing, through sudo
# when not root.
define install_missing
	@missing=$$(for p in $(1); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "installing:" $$missing; \
	  SUDO=$$( [ "$$(id -u)" -eq 0 ] || echo sudo ); \
	  $$SUDO apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

.PHONY: deps deps-aarch64 deps-deb configure build demo test test-asan test-tsan test-aarch64 build-aarch64-tree deps-arm64-system test-arm64-system test-valgrind coverage lint abi-update fuzz-long bench bench-build bench-summary install deb test-deb clean

deps:
	$(call install_missing,$(DEB_PACKAGES))

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVXU_WERROR=ON

build: configure
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	examples/session.sh $(BUILD)/examples

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -L unit
	fuzz/run.sh 5
	$(MAKE) test-asan
	$(MAKE) test-tsan

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVXU_WERROR=ON -DVXU_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS) -L unit

test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVXU_WERROR=ON -DVXU_SANITIZE=thread
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	cd $(TSAN_BUILD) && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	  ctest --output-on-failure -j $(JOBS) -L concurrency

# The device target: cross-build for 64-bit ARM and run the suite under qemu-user.
ARM_PACKAGES = g++-aarch64-linux-gnu qemu-user libgtest-dev:arm64 libgmock-dev:arm64

deps-aarch64: deps
	@SUDO=$$( [ "$$(id -u)" -eq 0 ] || echo sudo ); \
	if ! dpkg --print-foreign-architectures | grep -qx arm64; then \
	  $$SUDO dpkg --add-architecture arm64 && $$SUDO apt-get update -qq; \
	fi
	$(call install_missing,$(ARM_PACKAGES))
	cmake/toolchains/arm64-sysroot.sh $(ARM_BUILD)/sysroot

build-aarch64-tree: deps-aarch64
	cmake -S . -B $(ARM_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
	  -DVXU_AARCH64_SYSROOT=$(CURDIR)/$(ARM_BUILD)/sysroot -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVXU_WERROR=ON
	cmake --build $(ARM_BUILD) -j $(JOBS)

test-aarch64: build-aarch64-tree
	cd $(ARM_BUILD) && VXU_AARCH64_LIBS=$(CURDIR)/$(ARM_BUILD)/sysroot/usr/lib \
	  ctest --output-on-failure -j $(JOBS) -L unit

# The same cross build on a real arm64 kernel: Debian's arm64 kernel boots
# under qemu-system-aarch64 (virt machine, TCG) with an initramfs of the
# build tree, busybox, ip and dnsmasq, and runs every unit test program there
# (cmake/arm64-system/). Guest packages are downloaded into $(ARM_BUILD)/arm64-system.
SYSTEM_PACKAGES = qemu-system-arm cpio

deps-arm64-system: deps-aarch64
	$(call install_missing,$(SYSTEM_PACKAGES))

test-arm64-system: deps-arm64-system build-aarch64-tree
	nice -n 10 cmake/arm64-system/initramfs.sh $(ARM_BUILD)
	nice -n 10 cmake/arm64-system/boot.sh $(ARM_BUILD)

# The whole suite under valgrind memcheck (errors and definite leaks fail).
VG_BUILD ?= build-valgrind
test-valgrind: deps
	cmake -S . -B $(VG_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVXU_WERROR=ON -DVXU_VALGRIND=ON
	cmake --build $(VG_BUILD) -j $(JOBS)
	cd $(VG_BUILD) && VXU_TEST_UNDER_VALGRIND=1 ctest --output-on-failure -j $(JOBS) -L unit

# Long-running load tests (label soak), kept out of the quick test command.
.PHONY: test-soak
test-soak: build
	cd $(BUILD) && ctest --output-on-failure -V -L soak

# Line and branch coverage per subsystem (gcov + lcov); fails below 90% of lines.
COV_BUILD ?= build-coverage
coverage: deps
	cmake -S . -B $(COV_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVXU_COVERAGE=ON
	cmake --build $(COV_BUILD) -j $(JOBS)
	find $(COV_BUILD) -name '*.gcda' -delete
	cd $(COV_BUILD) && ctest -j $(JOBS) -L unit > ctest.log || { tail -30 ctest.log; exit 1; }
	cmake/coverage-report.sh $(COV_BUILD) $(CURDIR) 90

# Static analysis: clang-tidy (.clang-tidy) over the library's sources and the
# house format (.clang-format) over every tracked source; any finding fails.
LINT_BUILD ?= build-lint
lint: deps
	cmake -S . -B $(LINT_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
	  -DVXU_BUILD_TESTS=OFF -DVXU_BUILD_EXAMPLES=OFF
	cmake/lint.sh $(LINT_BUILD) $(JOBS)

# Records the library's ABI after an intended change (checked by the abi_guard test).
abi-update: build
	abidw --headers-dir include/vxutil --no-corpus-path --out-file abi/libvxutil.abi \
	  $(BUILD)/src/libvxutil.so
	@echo "recorded abi/libvxutil.abi; commit it with the change"

# Longer fuzzing: every target for ten minutes (FUZZ_SECONDS to change it).
FUZZ_SECONDS ?= 600
fuzz-long: deps
	fuzz/run.sh $(FUZZ_SECONDS)

bench-build: deps
	cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DVXU_BUILD_BENCH=ON -DVXU_BUILD_TESTS=OFF
	cmake --build $(BUILD)-bench -j $(JOBS)

# Reruns every benchmark with repetitions in random order; rewrites
# bench/README.md's table and bench/ratios.png. BENCH_QUICK=1: two short
# repetitions for a smoke test, table to stdout, chart in the build folder.
bench-summary: bench-build
	python3 bench/summarize.py $(if $(BENCH_QUICK),--quick) $(BUILD)-bench/bench

bench: bench-build
	for b in $(BUILD)-bench/bench/vxu_bench_*; do echo "== $$b"; ./$$b; done

install: build
	cmake --install $(BUILD)

# Debian packages: libvxutil1, libvxutil-dev and libvxlog-standin, built from
# the checkout's files (tracked and new, not ignored) copied into
# $(DEB_DIR)/src, then checked by lintian. test-deb installs them on this
# machine, builds and runs a consumer against them, and purges them.
DEB_DIR ?= $(BUILD)/deb
DEB_BUILD_PACKAGES = dpkg-dev debhelper fakeroot lintian cmake python3 libadns1-dev binutils \
                     man-db groff-base pkg-config gcc

deps-deb:
	$(call install_missing,$(DEB_BUILD_PACKAGES))

deb: deps-deb
	rm -rf $(DEB_DIR) && mkdir -p $(DEB_DIR)/src
	git ls-files -z --cached --others --exclude-standard | tar --null -T - -cf - | tar -xf - -C $(DEB_DIR)/src
	cd $(DEB_DIR)/src && nice -n 10 dpkg-buildpackage -us -uc -b -j$(JOBS)
	lintian --fail-on error,warning $(DEB_DIR)/*.changes
	@echo "lintian: no error and no warning"; ls $(DEB_DIR)/*.deb

# The install-tree check again with the stand-in installed (a library build
# of its own, so it runs here rather than in the quick suite).
test-deb: deb
	tests/install/check_debs.sh $(DEB_DIR) tests/install/consumer
	tests/install/check_standin.sh $(CURDIR) tests/install/consumer cc

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(ARM_BUILD) $(COV_BUILD) $(VG_BUILD) $(LINT_BUILD) \
	  $(BUILD)-bench build-fuzz
