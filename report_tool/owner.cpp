#include "owner.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "command.h"
#include "common.h"
#include "data_dir.h"
#include "output.h"
#include "store.h"

namespace report_tool {
namespace {

std::string name_of(uid_t user) {
    // There is one thread only. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const passwd* const entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

// With the groups that the system gives the user, and the directory's where it does not know him.
bool change_user(const struct stat& directory) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    const passwd* const entry = getpwuid(directory.st_uid);
    const gid_t group = entry != nullptr ? entry->pw_gid : directory.st_gid;
    const int groups = entry != nullptr ? initgroups(entry->pw_name, group) : setgroups(1, &group);
    return groups == 0 && setgid(group) == 0 && setuid(directory.st_uid) == 0;
}

}  // namespace

bool become_owner() {
    const std::string path = reporter::REPORTER_DATA_DIR;
    struct stat directory {};
    if (stat(path.c_str(), &directory) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return false;
        }
        throw refusal(path + " cannot be looked at: run this as root");
    }
    if (geteuid() == directory.st_uid) {
        return true;
    }
    const std::string owner = name_of(directory.st_uid);
    if (geteuid() != 0) {
        throw refusal(path + " belongs to " + owner + ": run this as that user or as root");
    }
    if (!change_user(directory)) {
        throw refusal("cannot become " + owner + ": " + error_text(errno));
    }
    return true;
}

void require_owner() {
    if (!become_owner()) {
        throw std::runtime_error(reporter::REPORTER_DATA_DIR + " is not there: install the agent");
    }
}

std::optional<std::string> read_device_file(const std::string& name) {
    const std::string path = reporter::REPORTER_DATA_DIR + name;
    if (access(path.c_str(), R_OK) == 0) {
        return reporter::read_file(path);
    }
    if (errno != ENOENT) {
        throw std::runtime_error(path + ": " + error_text(errno) + see_doctor);
    }
    return std::nullopt;
}

}  // namespace report_tool
