# The two commands that matter on a fresh machine: `make demo` and `make test`.
# Every target installs what is missing first (scripts/bootstrap is quick when
# all is present).

JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60

.PHONY: all bootstrap build demo test release-check coverage bench soak fuzz format clean package lintian integration

all: build

bootstrap:
	@scripts/bootstrap

build: bootstrap
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=OFF >/dev/null
	@cmake --build build/release -j $(JOBS)

demo: build
	@scripts/demo build/release out/demo

test: bootstrap
	@cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQL_SANITIZE=ON >/dev/null
	@cmake --build build/asan -j $(JOBS)
	@cd build/asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)
	@tests/integration/run --when-possible

# The optimised build with tests and no sanitizers: the compiler's flow analysis
# at -O3 warns about things the sanitizer build never sees, so it must build too.
release-check: bootstrap
	@cmake -S . -B build/release-check -G Ninja -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=ON >/dev/null
	@cmake --build build/release-check -j $(JOBS)

# Line and branch coverage of the tests and the fuzz corpora, per folder;
# HTML under out/coverage/.
coverage: bootstrap
	@cmake -S . -B build/coverage -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQL_COVERAGE=ON >/dev/null
	@find build/coverage -name '*.gcda' -delete  # counts of a previous build
	@# Objects of sources that moved to another library stay behind with their
	@# notes, whose old line numbers gcovr cannot merge with the new ones.
	@ninja -C build/coverage -t cleandead >/dev/null
	@find build/coverage -name '*.gcno' | while read -r n; do [ -e "$${n%.gcno}.o" ] || rm -f "$$n"; done
	@cmake --build build/coverage -j $(JOBS)
	@scripts/coverage build/coverage

# The Debian package: release build, installed under /usr.
package: bootstrap
	@cmake -S . -B build/package -G Ninja -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=OFF \
	  -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
	@cmake --build build/package -j $(JOBS)
	@rm -f build/package/qlformat_*.deb
	@cd build/package && cpack -G DEB | grep -v "^CPack: -"

# The package checked as Debian's tools check it (lintian: no error, no
# warning) and against the size the README gives.
lintian: package
	@scripts/check-package build/package/qlformat_*.deb

# Installs the package, asks the desktop's thumbnailers for thumbnails of the
# samples, removes the package. Needs root and apt.
integration:
	@tests/integration/run

bench: bootstrap
	@cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=OFF -DQL_BENCH=ON >/dev/null
	@cmake --build build/bench -j $(JOBS)
	@scripts/bench build/bench

# One process, the module loaded once, 100 000 mixed requests: memory and
# descriptors must stay flat and every answer match a fresh process's.
SOAK_REQUESTS ?= 100000
soak: bootstrap
	@cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DQL_TESTS=OFF -DQL_BENCH=ON >/dev/null
	@cmake --build build/bench -j $(JOBS) --target soak
	@build/bench/bench/soak/soak --requests $(SOAK_REQUESTS) samples

fuzz: bootstrap
	@CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQL_TESTS=OFF -DQL_FUZZ=ON -DQL_SANITIZE=ON >/dev/null
	@cmake --build build/fuzz -j $(JOBS)
	@scripts/fuzz build/fuzz $(FUZZ_SECONDS)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build out
