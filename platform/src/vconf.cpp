#include "vconf.h"

#include "state.h"

namespace {

constexpr int vconf_error = -1;

Json::Value setting(const char* key) {
    return platform::read_member("vconf.json", nullptr, key);
}

}  // namespace

char* vconf_get_str(const char* key) {
    if (key == nullptr) {
        return nullptr;
    }
    return platform::guarded(static_cast<char*>(nullptr),
                             [key] { return platform::to_c_string(setting(key)); });
}

int vconf_get_int(const char* key, int* value) {
    if (key == nullptr || value == nullptr) {
        return vconf_error;
    }
    return platform::guarded(vconf_error, [key, value] {
        *value = platform::to_int(setting(key));
        return 0;
    });
}
