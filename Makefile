# The two commands of the README: `make run` and `make test`. Both install what is
# missing first. Configuration happens once per preset; later builds are incremental.
.PHONY: all deps debug release run test bench fuzz format clean

all: debug

deps:
	@scripts/install-deps

build/debug/build.ninja:
	cmake --preset debug

build/release/build.ninja:
	cmake --preset release

build/fuzz/build.ninja:
	cmake --preset fuzz

debug: deps build/debug/build.ninja
	cmake --build --preset debug

release: deps build/release/build.ninja
	cmake --build --preset release

run: release
	scripts/run-app build/release/bin/ostavell

test: debug
	ctest --preset debug

bench: release
	scripts/run-bench build/release

fuzz: deps build/fuzz/build.ninja
	cmake --build --preset fuzz
	scripts/run-fuzz build/fuzz

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
