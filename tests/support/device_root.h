#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "support/platform_recorder.h"

/// The scratch directory that stands behind the device's fixed paths while a test runs. `main`
/// makes one per run and removes it afterwards unless a test failed.
namespace test_support {

using messages = std::vector<std::string>;

/// The scratch directory as the machine sees it, for a second tools/device-root on the same state.
std::filesystem::path scratch_root();

/// Skips the rest of the test where neither tools/device-root nor a test can mount anything.
#define NEEDS_MOUNTS()                                                               \
    if (std::getenv("TEV_DEVICE_ROOT_WAY") != std::string("bubblewrap")) {           \
        GTEST_SKIP() << "needs a mount of its own, and bubblewrap cannot work here"; \
    }

/// The source tree, from which tests take what is not installed.
std::filesystem::path source_dir();

/// The command for a program of this build. One for another architecture runs under the emulator
/// that TEV_EMULATOR gives with its options, split at blanks.
std::vector<std::string> built_program(const std::string& path,
                                       const std::vector<std::string>& arguments = {});

/// The device directory that tests begin with: agent and keys, not enrolled, sends at once and in
/// one try.
std::filesystem::path device_dir();

/// The device's places, as the program under test sees them.
std::filesystem::path data_dir();
std::filesystem::path lock_dir();
std::filesystem::path platform_dir();

/// Whole files as bytes; both throw std::runtime_error with the path. Writing makes the
/// directories.
std::string read_text(const std::filesystem::path& path);
void write_text(const std::filesystem::path& path, const std::string& text);

/// Empties the device: no data, no settings, both lock files there.
void reset_device();

/// Puts the configuration, the storage script and the Lua modules into the data directory.
void install_plugin();

/// Sets one value of the platform's settings or system information; `section` is "value", "custom"
/// or "platform". A null value counts as absent.
void set_vconf(const std::string& key, const Json::Value& value);
void set_system_info(const std::string& section, const std::string& key, const Json::Value& value);

/// A test on an empty device, with log and pauses recorded.
class device_test : public ::testing::Test {
protected:
    device_test() { reset_device(); }

    platform_recorder recorder;
};

}  // namespace test_support
