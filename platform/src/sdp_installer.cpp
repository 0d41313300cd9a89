#include "sdp_installer.h"

#include <dlfcn.h>

#include <memory>
#include <string>

#include "sdp_unpack.h"

namespace {

constexpr int install_error = -1;

struct library_closer {
    void operator()(void* library) const { dlclose(library); }
};

// Path of the archive reader, beside this library. dlopen would not find it by name under the
// address sanitizer, which calls dlopen from another place.
std::string path_of_reader() {
    Dl_info self{};
    dladdr(reinterpret_cast<void*>(path_of_reader), &self);
    const std::string path = self.dli_fname != nullptr ? self.dli_fname : "";
    return path.substr(0, path.rfind('/') + 1) + "libsdp-unpack.so.1";
}

}  // namespace

int sdp_install_from_file(const char* path, int /*mode*/, int /*flag*/) {
    if (path == nullptr) {
        return install_error;
    }
    const std::unique_ptr<void, library_closer> library(dlopen(path_of_reader().c_str(), RTLD_NOW));
    if (library == nullptr) {
        return install_error;
    }
    const auto unpack =
        reinterpret_cast<decltype(&sdp_unpack_package)>(dlsym(library.get(), "sdp_unpack_package"));
    return unpack != nullptr ? unpack(path) : install_error;
}
