# Tessaline: `make run` starts the application, `make test` runs every test. Both install
# what is missing first (Debian 12, apt-get).

BUILD := build
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps build run test bench fuzz install clean

all: build

deps:
	@bash scripts/deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD)

run: build
	@bash scripts/run.sh

# Brief fuzzing of the archive readers runs as part of the suite (see tests/CMakeLists.txt).
test: build
	@bash scripts/fuzz.sh build
	@bash scripts/test-env.sh ctest --test-dir $(BUILD) --output-on-failure --timeout 600

bench: build
	@bash scripts/test-env.sh bash scripts/bench.sh

fuzz: deps
	@bash scripts/fuzz.sh all 300

install: build
	cmake --install $(BUILD)

clean:
	rm -rf $(BUILD) build-fuzz
