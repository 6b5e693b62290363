# Cross build for the arm64 controller on a Debian amd64 host with multiarch (arm64 Qt,
# open62541 and GoogleTest installed as :arm64 packages, see scripts/install-cross-deps.sh).
# Test programs run under qemu, so that GoogleTest can list the tests at build time.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(PKG_CONFIG_EXECUTABLE /usr/bin/aarch64-linux-gnu-pkg-config CACHE FILEPATH "")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L /)
