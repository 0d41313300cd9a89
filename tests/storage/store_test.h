#pragma once

#include <random>
#include <string>

#include "storage/reports_storage.h"
#include "support/device_root.h"

namespace test_support {

/// The write to SQLite's files, counted from 1, at which the power fails: the process is killed,
/// and the block of the medium is lost; 0: none.
extern int last_write;
/// Bytes by which files may still grow before the disk is full; negative: any number.
extern long disk_left;
/// Bytes written, and how often a file was synced, which costs no time here.
extern std::size_t written;
extern int syncs;

/// The storage script on a device of its own. A statement that would read a whole table or sort
/// fails. Each call is made as by a process of its own.
class store_test : public device_test {
protected:
    store_test();
    std::shared_ptr<reporter::reports_storage> store(bool release_when_idle = true) const;

    static constexpr long HOUR = 3600, DAY = 24 * HOUR, NOON = 1792836000;
    static inline const std::string file = data_dir() / "db_reports";
    std::string script;
    Json::Value config;
    long now = NOON;
    std::mt19937 random;
};

}  // namespace test_support
