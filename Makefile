# The two commands a newcomer needs: `make run` and `make test`. Everything else is for developers.
BUILD_DIR      ?= build
TEST_BUILD_DIR ?= build-test
PACKAGE_BUILD_DIR ?= build-package
JOBS           ?= $(shell nproc)
CMAKE_FLAGS    ?=

.PHONY: all build deps run test test-build package format bench fuzz clean

all: build

deps:
	@scripts/install-deps.sh

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAMLO_BUILD_TESTS=OFF $(CMAKE_FLAGS)

build: $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

run: deps build
	@scripts/run-tamlo.sh $(BUILD_DIR)

$(TEST_BUILD_DIR)/build.ninja:
	cmake -S . -B $(TEST_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTAMLO_SANITIZE=ON -DTAMLO_BUILD_BENCH=OFF $(CMAKE_FLAGS)

test-build: $(TEST_BUILD_DIR)/build.ninja
	cmake --build $(TEST_BUILD_DIR) -j $(JOBS)

test: deps test-build
	cd $(TEST_BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

# tamlo_*.deb and tamlo-server_*.deb in $(PACKAGE_BUILD_DIR)/, checked by lintian and the metadata validators.
package: deps
	@JOBS=$(JOBS) scripts/build-packages.sh $(PACKAGE_BUILD_DIR)

# Renders every state of the panel offscreen into $(TEST_BUILD_DIR)/screenshots/*.png.
screenshots: deps $(TEST_BUILD_DIR)/build.ninja
	cmake --build $(TEST_BUILD_DIR) --target tamlo_ui_screens_tests -j $(JOBS)
	cd $(TEST_BUILD_DIR) && ctest -R ScreensSmokeTest --output-on-failure
	@echo "Screenshots in $(TEST_BUILD_DIR)/screenshots/"

bench: deps build
	@scripts/run-benchmarks.sh $(BUILD_DIR)

fuzz: deps
	@scripts/run-fuzzers.sh

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(TEST_BUILD_DIR) $(PACKAGE_BUILD_DIR)
