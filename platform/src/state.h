#pragma once

#include <string>

#include <json/json.h>

/// Where the substitutes keep what a device would hold: one directory, read afresh at each call.
/// Any thread may call; every failure is a std::exception that ends at the C border (`guarded`).
namespace platform {

/// A path below the directory that TEV_PLATFORM_DIR names, "/etc/tev-platform" without it.
std::string state_path(const std::string& name);

/// The bytes of a regular file; anything else is refused.
std::string read_state_file(const std::string& path);

/// The member `key` of the object in the JSON file `file`, or of that object's member `section`.
/// `section` may be null.
Json::Value read_member(const std::string& file, const char* section, const std::string& key);

/// Conversions that take no other JSON type: a device's store is typed, so 1 is no boolean.
int to_int(const Json::Value& value);
bool to_bool(const Json::Value& value);

/// As a malloc'ed C string; the caller frees it. A text with a zero byte is refused.
char* to_c_string(const Json::Value& value);

/// The file of a secure-storage item. A name that would leave the storage's directory is refused.
std::string item_path(const std::string& item);

/// What `body` returns, or `failure` when it throws: no exception passes into the C caller.
template <typename Body, typename Result>
Result guarded(Result failure, Body body) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

}  // namespace platform
