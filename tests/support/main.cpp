#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/device_root.h"

namespace {

namespace fs = std::filesystem;

bool only_lists_tests(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--gtest_list_tests", 18) == 0) {
            return true;
        }
    }
    return false;
}

// The command that runs this test again with `root` behind the device's paths. A test of another
// architecture runs under the emulator that TEV_EMULATOR gives with its options, split at blanks.
std::vector<std::string> command_in_root(const fs::path& root, int argc, char** argv) {
    std::vector<std::string> command{test_support::source_dir() / "tools" / "device-root", root};
    if (const char* emulator = std::getenv("TEV_EMULATOR")) {
        std::istringstream words(emulator);
        for (std::string word; words >> word;) {
            command.push_back(word);
        }
    }
    command.push_back(fs::read_symlink("/proc/self/exe"));
    command.insert(command.end(), argv + 1, argv + argc);
    return command;
}

[[noreturn]] void execute(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execv(arguments[0], arguments.data());
    std::perror(arguments[0]);
    _exit(125);
}

int run_in_scratch_root(int argc, char** argv) {
    std::string root = fs::temp_directory_path() / "tev-test-XXXXXX";
    if (mkdtemp(root.data()) == nullptr) {
        std::perror(root.c_str());
        return 125;
    }
    const std::vector<std::string> command = command_in_root(root, argc, argv);
    setenv("TEV_TEST_ROOT", root.c_str(), 1);
    unsetenv("TEV_PLATFORM_DIR");
    const pid_t child = fork();
    if (child == 0) {
        execute(command);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        std::fprintf(stderr, "kept for a look: %s\n", root.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    std::error_code ignored;
    fs::remove_all(root, ignored);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (std::getenv("TEV_TEST_ROOT") == nullptr && !only_lists_tests(argc, argv)) {
        return run_in_scratch_root(argc, argv);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
