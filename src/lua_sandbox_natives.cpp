#include "lua_sandbox_natives.h"

#include <chrono>
#include <cstdio>

#include "base64.h"
#include "common.h"
#include "compression.h"
#include "data_dir.h"
#include "sha256.h"

namespace reporter {
namespace {

// No exception may reach the interpreter. A native that fails, for want of memory, answers nil.
template <int (*native)(lua_State*)>
int without_exceptions(lua_State* lua) {
    try {
        return native(lua);
    } catch (const std::exception&) {
        return 0;
    }
}

int get_db_size(lua_State* lua) {
    REPORTER_INFO("get_db_size");
    const long long size = size_file(path_to_db());
    REPORTER_INFO("size: " << size);
    lua_pushnumber(lua, static_cast<lua_Number>(size));
    return 1;
}

int remove_db_file(lua_State*) {
    REPORTER_INFO("remove_db_file");
    static_cast<void>(std::remove(path_to_db().c_str()));
    return 0;
}

int get_timestamp(lua_State* lua) {
    REPORTER_INFO("get_timestamp");
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    lua_pushnumber(lua, static_cast<lua_Number>(seconds));
    return 1;
}

template <log_priority priority>
int log_message(lua_State* lua) {
    // Makes a number a string now, while there is no object that a Lua error could jump over.
    if (lua_gettop(lua) > 0) {
        lua_tolstring(lua, -1, nullptr);
    }
    REPORTER_LOG(priority, "LUA: " << lua::lua_tostring_impl(lua, {}));
    return 0;
}

}  // namespace

std::string path_to_db() {
    return REPORTER_DATA_DIR + "db_reports";
}

const lua_native store_natives[3] = {
    {"get_db_size", without_exceptions<get_db_size>},
    {"remove_db_file", without_exceptions<remove_db_file>},
    {"get_timestamp", without_exceptions<get_timestamp>},
};

// Kept: TRACE has the priority of LOG.
const lua_native logging_natives[4] = {
    {"LOG", without_exceptions<log_message<log_priority::info>>},
    {"WARN", without_exceptions<log_message<log_priority::warn>>},
    {"TRACE", without_exceptions<log_message<log_priority::info>>},
    {"ERROR", without_exceptions<log_message<log_priority::error>>},
};

const string_native string_natives[5] = {
    {"sha256", sha256},
    {"inflate", inflate},
    {"deflate", deflate},
    {"base64_decode", base64_decode},
    {"base64_encode", base64_encode},
};

}  // namespace reporter
