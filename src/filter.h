#pragma once

#include <string>
#include <unordered_map>

#include "lua/lua_state.h"
#include "report.h"

namespace reporter {

/// Decides whether a report may be saved. Report sources ask one before they save; the agent's own
/// pass asks none, so a report that is stored is sent.
class filter {
public:
    filter() = default;
    filter(const filter&) = delete;
    filter& operator=(const filter&) = delete;

    /// True when `r` may be saved. `r` is read during the call only.
    virtual bool operator()(const report& r) = 0;
    virtual ~filter() = default;
};

/// Takes every report on a supported device whose basic traffic is not blocked, else none. It looks
/// at the device once, when it is made. Any thread.
class default_filter : public filter {
public:
    /// `sys_info` as get_sys_info() gives it; a device without the fact "SUPPORT" is not supported.
    explicit default_filter(const std::unordered_map<std::string, std::string>& sys_info);

    bool operator()(const report& r) override;

private:
    /// The device's switch for reports as a whole.
    bool _support;
    /// The device's switch against basic traffic.
    bool _lfd_block_basic_traffic_support;
};

/// Asks the function "filter" of a Lua state: one table in, as `save_report` gets it, and a boolean
/// out. Each question takes the throttle pause. One thread at a time.
class lua_filter : public filter {
public:
    /// Takes over a state in which the function's script has run.
    explicit lua_filter(lua::lua_state&& state);

    /// Throws lua_exception when the function is missing, fails or returns anything but a boolean.
    bool operator()(const report& r) override;

private:
    lua::lua_state _state;
};

}  // namespace reporter
