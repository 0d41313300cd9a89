#!/usr/bin/env bash
# Builds the agent for the device, 32-bit ARM with OpenSSL 1.1.1, and runs its tests under emulation.
#
#   ./device.sh [CTEST-ARGUMENT ...]
#
# Arguments go to CTest: ./device.sh -R journal runs the tests with "journal" in their names. Everything it
# makes is in build/. Nothing else on the machine changes, except that missing packages are installed.
set -euo pipefail
source "$(dirname -- "${BASH_SOURCE[0]}")/dev/lib.sh"
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"

readonly sysroot=build/sysroot          # the system's own libraries
readonly root=build/device-root-fs      # with the platform's, as on a device

# The platform's libraries are in place before the agent is configured, like on a device.
make_root() {
    rm -rf -- "$root" &&
        cp -al -- "$sysroot" "$root" &&
        cmake --install build/device-platform --component platform-substitutes --prefix "$root"
}

# With the substitutes' sources out of reach, only the root can provide the platform's interfaces.
without_substitutes() {
    bwrap --dev-bind / / --tmpfs "$PWD/platform" --die-with-parent -- "$@"
}

# Looks for the C library's checks of buffer sizes. The compiler leaves them out where it sees that all is well, so
# a source that needs one is compiled like those of the agent.
check_fortify() {
    local flags
    flags=$(sed -n 's/^ *"command": "\(.*\) -o [^ ]*main.cpp.o .*/\1/p' build/device/compile_commands.json | head -n 1)
    mkdir -p build/device/fortify
    echo '#include <cstring>
        char into[8];
        void copy(const char* from, std::size_t size) { std::memcpy(into, from, size); }' >build/device/fortify/probe.cpp
    $flags -fno-lto -o build/device/fortify/probe.o -c build/device/fortify/probe.cpp &&
        llvm-nm --undefined-only build/device/fortify/probe.o | grep __memcpy_chk
}

check_binaries() {
    local installed=build/device-installed
    rm -rf -- "$installed"
    cmake --install build/device --prefix "$installed" >/dev/null &&
        dev/check-binaries "$root" "$installed"/usr/lib/libtev_reporter.so.*.*.* \
            "$installed/opt/data/dpm/dplugins/tev-reporter-plugin/tev_reporter_main" \
            "$installed/usr/bin/tev-report" &&
        check_fortify
}

[[ $PWD != *[[:space:]]* ]] || fail "pkg-config and the emulator need a tree whose path has no blank"
dev/install-packages build device
bwrap --dev-bind / / true || fail "nothing can stand in for bubblewrap here: allow unprivileged user namespaces"
step "Unpack the system" dev/make-sysroot "$sysroot"
build_preset release collector set-config
build_preset device-platform platform-substitutes
step "Make the device's root" make_root
step "Configure device" without_substitutes cmake --preset device
step "Build device" without_substitutes cmake --build build/device --parallel "$(nproc)"
step "Check the binaries" check_binaries
ctest --preset device --parallel "$(nproc)" "$@"
