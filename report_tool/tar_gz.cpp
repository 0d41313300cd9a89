#include "tar_gz.h"

#include <sys/stat.h>

#include <ctime>

#include <memory>
#include <stdexcept>

#include <archive.h>
#include <archive_entry.h>

namespace report_tool {
namespace {

void check(archive* writer, la_ssize_t result) {
    if (result < 0) {
        const char* const text = archive_error_string(writer);
        throw std::runtime_error(std::string("the archive cannot be made: ") +
                                 (text != nullptr ? text : "no memory"));
    }
}

la_ssize_t append(archive* /*writer*/, void* text, const void* bytes, std::size_t size) noexcept {
    try {
        static_cast<std::string*>(text)->append(static_cast<const char*>(bytes), size);
        return static_cast<la_ssize_t>(size);
    } catch (const std::exception&) {
        return -1;
    }
}

void add_file(archive* writer, const std::string& name, const std::string& content) {
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                              archive_entry_free);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), S_IRUSR | S_IWUSR);
    archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
    check(writer, archive_write_header(writer, entry.get()));
    check(writer, archive_write_data(writer, content.data(), content.size()));
}

}  // namespace

std::string make_archive(const std::map<std::string, std::string>& files) {
    std::string bytes;
    const std::unique_ptr<archive, decltype(&archive_write_free)> writer(archive_write_new(),
                                                                         archive_write_free);
    check(writer.get(), archive_write_add_filter_gzip(writer.get()));
    check(writer.get(), archive_write_set_format_ustar(writer.get()));
    check(writer.get(), archive_write_open(writer.get(), &bytes, nullptr, append, nullptr));
    for (const auto& [name, content] : files) {
        add_file(writer.get(), name, content);
    }
    check(writer.get(), archive_write_close(writer.get()));
    return bytes;
}

}  // namespace report_tool
