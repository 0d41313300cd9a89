#pragma once

#include <string>

#include "lua/lua_state.h"

namespace reporter {

/// Path of the database file that the storage script owns.
std::string path_to_db();

/// A native that works on the interpreter's stack. No C++ exception leaves it.
struct lua_native {
    const char* name;
    lua_CFunction function;
};

/// A native that takes the bytes of its last argument and returns bytes.
struct string_native {
    const char* name;
    lua::lua_state::string_function function;
};

// What a sandboxed script may call, in the order in which it is registered.

/// The database file and the clock: "get_db_size" in bytes, -1 without a file; "remove_db_file";
/// "get_timestamp" in seconds since 1970.
extern const lua_native store_natives[3];
/// One record of the log each, with the last argument as its text.
extern const lua_native logging_natives[4];
/// Hash, zlib and Base64.
extern const string_native string_natives[5];

}  // namespace reporter
