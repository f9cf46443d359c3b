# Thin wrapper over CMake. Builds land in build/ (plain), build-sanitize/
# (AddressSanitizer and UndefinedBehaviorSanitizer), build-fuzz/ (clang) and
# build-demo/ (make demo, without the test suite).
JOBS ?= 2
CMAKE ?= cmake
CTEST ?= ctest
PREFIX ?= /usr/local
CMAKE_INSTALL_PREFIX ?= $(PREFIX)
# Warnings are errors in the project's own checks (make test, CI) only.
WERROR ?= OFF

.PHONY: all build build-sanitize test test-plain test-sanitize fuzz bench clean demo install deb check-viewer coverage format format-check

all: build

build:
	$(CMAKE) -S . -B build -DKELVO_SANITIZE=OFF -DKELVO_WERROR=$(WERROR)
	$(CMAKE) --build build -j $(JOBS)

build-sanitize:
	$(CMAKE) -S . -B build-sanitize -DKELVO_SANITIZE=ON -DKELVO_WERROR=$(WERROR)
	$(CMAKE) --build build-sanitize -j $(JOBS)

test-plain:
	$(MAKE) --no-print-directory build WERROR=ON
	cd build && $(CTEST) -j $(JOBS) --output-on-failure --timeout 600

test-sanitize:
	$(MAKE) --no-print-directory build-sanitize WERROR=ON
	cd build-sanitize && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  $(CTEST) -j $(JOBS) --output-on-failure --timeout 900

# The whole suite, plain and sanitized; fails if either run has a failure.
test:
	@status=0; \
	$(MAKE) --no-print-directory test-plain || status=1; \
	$(MAKE) --no-print-directory test-sanitize || status=1; \
	if [ $$status -eq 0 ]; then echo "make test: plain and sanitized suites passed"; \
	else echo "make test: FAILED"; fi; \
	exit $$status

fuzz:
	$(CMAKE) -S . -B build-fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DKELVO_FUZZ=ON -DKELVO_TESTS=OFF
	$(CMAKE) --build build-fuzz -j $(JOBS)

# One style for every C and C++ file, kept by clang-format (.clang-format).
FORMAT_FILES = git ls-files '*.c' '*.cpp' '*.h' '*.hpp'
format:
	$(FORMAT_FILES) | xargs clang-format -i

# Fails, naming the files, when clang-format would change any of them.
format-check:
	@bad=$$($(FORMAT_FILES) | while read -r f; do \
	  clang-format --dry-run -Werror "$$f" >/dev/null 2>&1 || echo "$$f"; done); \
	if [ -n "$$bad" ]; then echo "make format would change:"; echo "$$bad"; exit 1; fi; \
	echo "make format-check: every file is formatted"

# The whole suite built with gcov, and gcovr's summary for src/ and include/.
# Root's tests run `on` as the service account, which must be able to write
# its counts into the build tree: the tree is opened to all and the suite
# runs under umask 0, in this build only.
coverage:
	$(CMAKE) -S . -B build-coverage -DCMAKE_BUILD_TYPE=Debug -DKELVO_COVERAGE=ON
	$(CMAKE) --build build-coverage -j $(JOBS)
	find build-coverage -name '*.gcda' -delete
	chmod -R a+rwX build-coverage
	@status=0; cd build-coverage && (umask 0 && $(CTEST) -j $(JOBS) --timeout 900) || status=1; \
	cd .. && gcovr --root . --object-directory build-coverage --filter 'src/' --filter 'include/' \
	  --print-summary --output /dev/null | grep -E '^(lines|branches):'; \
	exit $$status

bench:
	$(CMAKE) -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DKELVO_BENCH=ON -DKELVO_TESTS=OFF
	$(CMAKE) --build build-bench -j $(JOBS) --target bench_writer bench_report
	./build-bench/bench/bench_writer
	./build-bench/bench/bench_report

# Builds the tool and the demo in build-demo/ and walks through a trace in a
# private instance, showing each command; leaves nothing behind.
demo:
	CMAKE="$(CMAKE)" JOBS="$(JOBS)" bash scripts/demo.sh

# Opens the demo's export in speedscope in headless Chromium (not part of
# make test: it installs speedscope from npm and chromium from Debian).
check-viewer:
	CMAKE="$(CMAKE)" JOBS="$(JOBS)" bash scripts/check_viewer.sh

# Installs build/ under CMAKE_INSTALL_PREFIX (or PREFIX, default /usr/local),
# staged below DESTDIR when that is given.
install: build
	DESTDIR="$(DESTDIR)" $(CMAKE) --install build --prefix "$(CMAKE_INSTALL_PREFIX)"

# Debian packages kelvo, libkelvo0 and libkelvo-dev into build-deb/packages/,
# checked by lintian where it is installed.
deb:
	CMAKE="$(CMAKE)" JOBS="$(JOBS)" bash scripts/deb.sh build-deb build-deb/packages

clean:
	rm -rf build build-sanitize build-fuzz build-bench build-demo build-deb build-viewer build-coverage
