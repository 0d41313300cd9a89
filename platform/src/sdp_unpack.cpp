#include "sdp_unpack.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <archive.h>
#include <archive_entry.h>

#include "state.h"

namespace {

constexpr int installed = 0;
constexpr int try_again = 2;
constexpr int install_error = -1;

// Far above any key or certificate, low enough that a damaged package cannot exhaust memory.
constexpr la_int64_t max_package_bytes = la_int64_t{16} * 1024 * 1024;
constexpr size_t read_block_bytes = 10240;

using item_map = std::map<std::string, std::string>;

class file_descriptor {
public:
    explicit file_descriptor(int descriptor) : _descriptor(descriptor) {}
    file_descriptor(const file_descriptor&) = delete;
    file_descriptor& operator=(const file_descriptor&) = delete;
    ~file_descriptor() {
        if (_descriptor >= 0) {
            close(_descriptor);
        }
    }
    int get() const { return _descriptor; }

private:
    int _descriptor;
};

struct archive_deleter {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
using archive_handle = std::unique_ptr<archive, archive_deleter>;

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

// Worth a second try: another process holds a lease on the package while it writes it (EAGAIN), a
// signal came in between (EINTR), or descriptors or memory are short.
bool is_transient(int error) {
    return error == EAGAIN || error == EINTR || error == EMFILE || error == ENFILE ||
           error == ENOMEM;
}

archive_handle open_package(int descriptor) {
    struct stat status = {};
    require(fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode), "not a regular file");
    archive_handle reader(archive_read_new());
    require(reader != nullptr && archive_read_support_format_tar(reader.get()) == ARCHIVE_OK &&
                archive_read_open_fd(reader.get(), descriptor, read_block_bytes) == ARCHIVE_OK,
            "not a tar archive");
    return reader;
}

std::string read_item(archive* reader, archive_entry* entry, la_int64_t limit) {
    const la_int64_t size = archive_entry_size(entry);
    require(size >= 0 && size <= limit, "the package is too large");
    std::string bytes(static_cast<size_t>(size), '\0');
    require(archive_read_data(reader, bytes.data(), bytes.size()) == static_cast<la_ssize_t>(size),
            "an item is cut short");
    return bytes;
}

// Items by name. Either all are installed or none, so the package is read to its end first.
item_map read_items(archive* reader) {
    item_map items;
    la_int64_t room = max_package_bytes;
    archive_entry* entry = nullptr;
    int result = archive_read_next_header(reader, &entry);
    for (; result == ARCHIVE_OK; result = archive_read_next_header(reader, &entry)) {
        const char* path = archive_entry_pathname(entry);
        std::string name = path == nullptr ? "" : path;
        if (archive_entry_filetype(entry) == AE_IFDIR && name == "./") {
            continue;  // `tar -C DIRECTORY -c .` begins so
        }
        require(
            archive_entry_filetype(entry) == AE_IFREG && archive_entry_hardlink(entry) == nullptr,
            "an item is no regular file");
        name.erase(0, name.compare(0, 2, "./") == 0 ? 2 : 0);
        platform::item_path(name);  // refuses a name that leaves the storage
        items[name] = read_item(reader, entry, room);
        room -= static_cast<la_int64_t>(items[name].size());
    }
    require(result == ARCHIVE_EOF && !items.empty(), "the package is damaged or empty");
    return items;
}

// Replaces the item in one step, so that a reader sees the old or the new bytes, never a part.
void write_item(const std::string& name, const std::string& bytes) {
    std::string scratch = platform::state_path("secure_storage/.XXXXXX");
    const file_descriptor file(mkostemp(scratch.data(), O_CLOEXEC));
    require(file.get() >= 0, "secure storage cannot be written");
    const bool done =
        write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
        std::rename(scratch.c_str(), platform::item_path(name).c_str()) == 0;
    if (!done) {
        unlink(scratch.c_str());
    }
    require(done, "an item cannot be written");
}

int install(const char* path) {
    // Without O_NONBLOCK a FIFO, or a package under a lease, would hold the caller up.
    const file_descriptor package(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (package.get() < 0) {
        return is_transient(errno) ? try_again : install_error;
    }
    const item_map items = read_items(open_package(package.get()).get());
    const std::string storage = platform::state_path("secure_storage");
    require(mkdir(storage.c_str(), S_IRWXU) == 0 || errno == EEXIST, "no secure storage");
    for (const auto& [name, bytes] : items) {
        write_item(name, bytes);
    }
    return installed;
}

}  // namespace

int sdp_unpack_package(const char* path) {
    return platform::guarded(install_error, [path] { return install(path); });
}
