#include "filter.h"

#include <utility>

#include "logging.h"
#include "lua/table_creator.h"

namespace reporter {
namespace {

bool is_supported(const std::unordered_map<std::string, std::string>& sys_info) {
    const auto found = sys_info.find("SUPPORT");
    return found != sys_info.end() && found->second == "1";
}

}  // namespace

// The traffic switch counts by its presence, as it is listed only when it is set.
default_filter::default_filter(const std::unordered_map<std::string, std::string>& sys_info)
    : _support(is_supported(sys_info)),
      _lfd_block_basic_traffic_support(sys_info.count("LFD_BLOCK_BASIC_TRAFFIC_SUPPORT") != 0) {
    REPORTER_INFO("default_filter::_support= " << _support);
    REPORTER_INFO(
        "default_filter::_lfd_block_basic_traffic_support= " << _lfd_block_basic_traffic_support);
}

bool default_filter::operator()(const report& /*r*/) {
    return _support && !_lfd_block_basic_traffic_support;
}

lua_filter::lua_filter(lua::lua_state&& state) : _state(std::move(state)) {}

bool lua_filter::operator()(const report& r) {
    return _state.call<bool, lua::report_table>("filter", lua::report_table(r));
}

}  // namespace reporter
