// Saves three reports, built from the installed headers and library alone: docs/library.md.
#include <cstdint>

#include <filter.h>
#include <storage/open_reports_storage.h>
#include <sys_info.h>

int main() {
    const auto storage = reporter::open_reports_storage();
    reporter::default_filter takes_in(reporter::get_sys_info());
    for (const std::uint32_t id : {4294967293, 4294967294, 4294967295}) {
        const reporter::report record{7, 1, {'t', 'e', 'x', 't'}, id};
        if (!takes_in(record) || storage->save_report(record) == 0) {
            return 1;
        }
    }
}
