#include <cstdio>
#include <cstdlib>

#include "support/child_process.h"
#include "support/device_root.h"

int main(int argc, char** argv) {
    using namespace test_support;
    std::vector<std::string> again(argv + 1, argv + argc);
    ::testing::InitGoogleTest(&argc, argv);
    if (std::getenv("TEV_SCRATCH_ROOT") != nullptr || ::testing::GTEST_FLAG(list_tests)) {
        return RUN_ALL_TESTS();
    }
    // Once more, with a scratch directory behind the device's paths.
    again = built_program(std::filesystem::read_symlink("/proc/self/exe"), again);
    again.insert(again.begin(), {source_dir() / "tools" / "device-root", "--scratch"});
    execute(again);
    std::perror(again[0].c_str());
    return EXIT_FAILURE;
}
