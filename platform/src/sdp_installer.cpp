#include "sdp_installer.h"

#include <dlfcn.h>

#include <memory>

#include "sdp_unpack.h"

namespace {

constexpr int install_error = -1;

struct library_closer {
    void operator()(void* library) const { dlclose(library); }
};

}  // namespace

int sdp_install_from_file(const char* path, int /*mode*/, int /*flag*/) {
    if (path == nullptr) {
        return install_error;
    }
    const std::unique_ptr<void, library_closer> library(dlopen("libsdp-unpack.so.1", RTLD_NOW));
    if (library == nullptr) {
        return install_error;
    }
    const auto unpack =
        reinterpret_cast<decltype(&sdp_unpack_package)>(dlsym(library.get(), "sdp_unpack_package"));
    return unpack != nullptr ? unpack(path) : install_error;
}
