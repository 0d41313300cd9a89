#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/device_root.h"

namespace {

namespace fs = std::filesystem;

// The command that runs this test again with `root` behind the device's paths.
std::vector<std::string> command_in_root(const fs::path& root,
                                         const std::vector<std::string>& arguments) {
    std::vector<std::string> command =
        test_support::built_program(fs::read_symlink("/proc/self/exe"), arguments);
    command.insert(command.begin(), {test_support::source_dir() / "tools" / "device-root", root});
    return command;
}

// Gives the command's status as it would be the process's own.
int run(std::vector<std::string> command) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::vector<char*> arguments;
        for (std::string& argument : command) {
            arguments.push_back(argument.data());
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        std::perror(arguments[0]);
        _exit(125);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run_in_scratch_root(const std::vector<std::string>& arguments) {
    std::string root = fs::temp_directory_path() / "tev-test-XXXXXX";
    if (mkdtemp(root.data()) == nullptr) {
        std::perror(root.c_str());
        return 125;
    }
    setenv("TEV_TEST_ROOT", root.c_str(), 1);
    unsetenv("TEV_PLATFORM_DIR");
    const int status = run(command_in_root(root, arguments));
    if (status == 0) {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    } else {
        std::fprintf(stderr, "kept for a look: %s\n", root.c_str());
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    ::testing::InitGoogleTest(&argc, argv);
    if (std::getenv("TEV_TEST_ROOT") == nullptr && !::testing::GTEST_FLAG(list_tests)) {
        return run_in_scratch_root(arguments);
    }
    return RUN_ALL_TESTS();
}
