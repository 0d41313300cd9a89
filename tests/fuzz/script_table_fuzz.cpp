#include <algorithm>
#include <vector>

#include "fuzz.h"
#include "lua/lua_state.h"

namespace {

// The input is an expression that can call nothing, so that it always ends.
constexpr const char* script = R"(getmetatable("").__index = nil
function get()
    local chunk = assert(loadstring("return " .. input))
    setfenv(chunk, {})
    return (chunk())
end)";

// Whether the script's value has the type.
template <class T>
bool read(reporter::lua::lua_state& state, T& value) {
    try {
        value = state.call<T>("get");
    } catch (const reporter::lua_exception&) {
        return false;
    }
    return true;
}

unsigned int as_id(long value) {
    return static_cast<unsigned int>(std::clamp(value, 0L, 0xFFFFFFFFL));
}

}  // namespace

void fuzz_one(const std::string& input) {
    if (input.find("function") != std::string::npos) {
        return;
    }
    reporter::lua::lua_state state;
    state.run_script(script);
    state.set_global("input", input);
    bool truth = false;
    std::string text;
    long time = 0;
    unsigned int id = 0;
    std::vector<long> times;
    std::vector<unsigned int> ids;
    const bool is_number = read(state, time);
    const bool is_table = read(state, times);
    assert(read(state, truth) + read(state, text) + is_number + is_table <= 1);
    assert(read(state, id) == is_number && id == as_id(time));
    assert(read(state, ids) == is_table && ids.size() == times.size());
    assert(lua_gettop(state.get_lua()) == 0);
    // The script's own order may differ between two calls.
    std::sort(ids.begin(), ids.end());
    std::sort(times.begin(), times.end());
    assert(std::equal(ids.begin(), ids.end(), times.begin(),
                      [](unsigned int one, long other) { return one == as_id(other); }));
}
