#include "storage/store_test.h"

#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>

namespace test_support {
namespace {

// A statement that would read a whole table or sort fails, however little is stored.
const std::string NO_SCANS = R"(
local open = sqlite3.open
sqlite3 = { open = function(...)
    local database, plan = open(...), ""
    local execute = database.execute
    function database.execute(sql, ...)
        if string.find(sql, "^[DISU]") and not string.find(sql, "LIMIT 0") and
            not string.find(sql, "sqlite_master") then
            database.each(function(row) plan = plan .. row.detail end, "EXPLAIN QUERY PLAN " .. sql, ...)
        end
        if string.find(plan, "SCAN %l") or string.find(plan, "TEMP") then error(plan, 0) end
        return execute(sql, ...)
    end
    return database
end }
)";

}  // namespace

int last_write = 0;
long disk_left = -1;
std::size_t written = 0;
int syncs = 0;

store_test::store_test() {
    install_plugin();
    script = NO_SCANS + read_text(data_dir() / "lua/processor_extension_V1.lua");
    config["processor"]["dispatching_time"] = "86400";
}

std::shared_ptr<reporter::reports_storage> store_test::store(bool release_when_idle) const {
    const std::string clock = "function get_timestamp() return " + std::to_string(now) + " end";
    return reporter::reports_storage::make({{config, {}}, clock + script}, release_when_idle);
}

}  // namespace test_support

using namespace test_support;

extern "C" ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t at) {
    struct stat64 state {};
    fstat64(file, &state);
    const long growth = std::max(0L, long(at + off64_t(size) - state.st_size));
    if (disk_left >= 0 && growth > disk_left) {
        errno = ENOSPC;
        return -1;
    }
    disk_left -= disk_left < 0 ? 0 : growth;
    written += size;
    static char lost[4096];
    iovec part{const_cast<void*>(bytes), size};
    const bool fails = --last_write == 0;
    if (fails) {
        std::fill(std::begin(lost), std::end(lost), '\xff');
        part = {lost, sizeof lost};
        at -= at % 4096;
    }
    return pwritev64(file, &part, 1, at) + (fails ? raise(SIGKILL) : 0);
}

extern "C" int fdatasync(int) {
    return ++syncs * 0;
}
extern "C" int fsync(int) {
    return ++syncs * 0;
}
