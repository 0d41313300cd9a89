#include "build_shared_mutex.h"

#include <exception>

#include "logging.h"

namespace reporter {

std::unique_ptr<file_lock> build_shared_mutex(const std::string& name, bool create) {
    try {
        if (create) {
            REPORTER_INFO("create shared mutex: " << name);
            return std::make_unique<file_lock>("create_only", name);
        }
        REPORTER_INFO("open shared mutex: " << name);
        return std::make_unique<file_lock>("open_only", name);
    } catch (const std::exception& error) {
        REPORTER_ERROR("can't build mutex: " << name << " error: " << error.what());
        throw;
    }
}

}  // namespace reporter
