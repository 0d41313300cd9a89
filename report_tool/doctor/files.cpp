#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common.h"
#include "data_dir.h"
#include "doctor/examination.h"
#include "failure.h"
#include "json_io.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

// There is one thread only. NOLINTBEGIN(concurrency-mt-unsafe)

std::string owner_and_mode(const struct stat& file) {
    const passwd* const user = getpwuid(file.st_uid);
    const ::group* const users = getgrgid(file.st_gid);
    char mode[16];
    std::snprintf(mode, sizeof mode, " %04o", static_cast<unsigned int>(file.st_mode & 07777));
    return (user != nullptr ? user->pw_name : std::to_string(file.st_uid)) + ":" +
           (users != nullptr ? users->gr_name : std::to_string(file.st_gid)) + mode;
}

// NOLINTEND(concurrency-mt-unsafe)

// As the agent's user, which this process is by now. True when the file is there and usable.
bool examine_access(doctor::group& files, const std::string& name, const std::string& path,
                    int mode) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            files.ok(name, "not there yet");
        } else {
            files.fault(name, "access", path + ": " + error_text(error),
                        "give it to the agent's user");
        }
        return false;
    }
    if (access(path.c_str(), mode) != 0) {
        const int error = errno;
        const bool read_only = error == EROFS;
        files.fault(name, read_only ? "read-only" : "access",
                    path + ": " + error_text(error) + " (" + owner_and_mode(file) + ")",
                    read_only ? "make the file system writable"
                              : "give it to the agent's user, readable and writable");
        return false;
    }
    files.ok(name, owner_and_mode(file) + ", " + readable_size(static_cast<double>(file.st_size)));
    return true;
}

void examine_data_dir(examination& whole, doctor::group& files) {
    const std::string path = reporter::REPORTER_DATA_DIR;
    if (!whole.data_dir_exists) {
        files.fault("data_dir", "missing", path + " is not there", "install the agent");
        return;
    }
    // Root may do all of it, which hides that the agent's user may not.
    struct stat lock {};
    if (geteuid() == 0 && stat((lock_dir + std::string(store_lock)).c_str(), &lock) == 0 &&
        lock.st_uid != 0) {
        files.fault("data_dir", "owner",
                    path + " belongs to root, and the store's lock file does not (" +
                        owner_and_mode(lock) + ")",
                    "give it, db_reports, db_reports-journal, stats and journal to the agent's "
                    "user");
        return;
    }
    examine_access(files, "data_dir", path, R_OK | W_OK | X_OK);
}

void examine_space(doctor::group& files) {
    constexpr double little = 1024.0 * 1024;
    struct statvfs disk {};
    if (statvfs(reporter::REPORTER_DATA_DIR.c_str(), &disk) != 0) {
        files.fault("disk", "access", error_text(errno), "see to the file system");
        return;
    }
    const double room = static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize);
    const std::string found = readable_size(room) + " free";
    if (disk.f_bavail == 0) {
        files.fault("disk", "full",
                    "no space is left: reports are refused, counters and journal are lost",
                    "make room on the data directory's file system");
    } else if (room < little) {
        files.warning("disk", "little", found, "make room before it is full");
    } else {
        files.ok("disk", found);
    }
}

void tell_lock_failure(doctor::group& files, const char* name, const failure& error) {
    const std::string advice =
        error.cause == "missing" ? "the platform makes it at boot: see why it did not"
        : error.cause == "held"  ? "a pass waits for it without limit: see what that process does"
                                 : "give it to the agent's user, readable and writable";
    files.fault(name, error.cause, error.what(), advice);
}

std::unique_ptr<held_lock> examine_lock(doctor::group& files, const char* name, const char* file) {
    try {
        auto lock = std::make_unique<held_lock>(file);
        struct stat status {};
        stat((lock_dir + std::string(file)).c_str(), &status);
        files.ok(name, owner_and_mode(status) + ", free");
        return lock;
    } catch (const failure& error) {
        tell_lock_failure(files, name, error);
        return nullptr;
    }
}

void examine_stats(doctor::group& files) {
    const std::string path = reporter::REPORTER_DATA_DIR + "stats";
    Json::Value content;
    if (examine_access(files, "stats", path, R_OK | W_OK) &&
        (!reporter::json_read(reporter::read_file_default(path, ""), content,
                              reporter::json_comments::skip) ||
         !content.isObject())) {
        files.warning("stats", "damaged", path + " is no JSON object",
                      "the next event begins the counters anew: copy the file if it matters");
    }
}

}  // namespace

void examine_files(examination& whole) {
    doctor::group files(whole, "files");
    examine_data_dir(whole, files);
    whole.store = examine_lock(files, "store_lock", store_lock);
    const auto lock = examine_lock(files, "stats_lock", stats_lock);
    if (!whole.data_dir_exists) {
        return;
    }
    const std::string& dir = reporter::REPORTER_DATA_DIR;
    examine_access(files, "db_reports", dir + "db_reports", R_OK | W_OK);
    examine_access(files, "db_reports-journal", dir + "db_reports-journal", R_OK | W_OK);
    examine_access(files, "journal", dir + "journal", R_OK | W_OK);
    examine_stats(files);
    examine_space(files);
}

}  // namespace report_tool::doctor
