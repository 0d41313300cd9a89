#include "sys_info.h"

#include <cstdlib>
#include <memory>

#include <vconf.h>

#include "logging.h"
#include "sys_info_values.h"

namespace reporter {
namespace {

// The platform's numbers. Their names differ between its releases.
const auto tizen_version_key = static_cast<system_info_key_e>(1);
const auto platform_name_key = static_cast<system_info_key_e>(2);
const auto software_version_key = static_cast<system_info_key_e>(128);
const auto software_version_model_key = static_cast<system_info_key_e>(199);
const auto broadcast_standard_key = static_cast<system_info_key_e>(333);
const auto device_id_key = static_cast<system_info_key_e>(801);
const auto block_basic_traffic_key = static_cast<system_info_key_e>(40066);

constexpr const char* vendor_key = "http://tizen.org/system/manufacturer";
constexpr const char* manufacturer_key = "com.morvana/featureconf/product.manufacturer";
constexpr const char* product_type_key = "com.morvana/featureconf/product.product_type";
constexpr const char* support_key = "com.morvana/featureconf/security.tev.tev_support";

constexpr const char* device_id_setting = "db/comss/duid";

constexpr const char* dtv_types[] = {"ATSC", "DVB", "ISDB"};
constexpr const char* product_types[] = {"TV",  "MONITOR",       "BD",       "PROJECTOR", "LFD",
                                         "SMD", "NETWORK_AUDIO", "SOUNDBAR", "HTV",       "AI_SPK"};

struct free_deleter {
    void operator()(char* text) const noexcept { std::free(text); }
};

// Takes over a string that the platform has allocated; null is the empty text.
std::string take_text(char* malloced) {
    const std::unique_ptr<char, free_deleter> owner(malloced);
    return owner ? std::string(owner.get()) : std::string();
}

// `call` is one platform call; on success it fills the string in and returns 0.
template <class Call>
std::string read_text(Call call) {
    char* text = nullptr;
    return call(&text) == 0 ? take_text(text) : std::string();
}

template <std::size_t Size>
std::string name_of(const char* const (&names)[Size], int index) {
    const bool known = index >= 0 && static_cast<std::size_t>(index) < Size;
    return known ? names[index] : "";
}

}  // namespace

std::string get_platform_info(const std::string& key) {
    return read_text(
        [&](char** text) { return system_info_get_platform_string(key.c_str(), text); });
}

std::string get_custom_info(const char* key) {
    return read_text([&](char** text) { return system_info_get_custom_string(key, text); });
}

std::string get_sys_info_string_value(system_info_key_e key) {
    return read_text([&](char** text) { return system_info_get_value_string(key, text); });
}

std::string get_sys_info_dtv_type() {
    int value = 0;
    const int error = system_info_get_value_int(broadcast_standard_key, &value);
    return error == 0 ? name_of(dtv_types, value) : "";
}

std::string get_sys_info_product_type() {
    int value = 0;
    const int error = system_info_get_custom_int(product_type_key, &value);
    return error == 0 ? name_of(product_types, value) : "";
}

std::string get_sys_info_duid() {
    std::string duid = get_sys_info_string_value(device_id_key);
    if (duid.empty()) {
        duid = take_text(vconf_get_str(device_id_setting));
    }
    return duid.empty() ? "EMPTYDUID" : duid;
}

bool get_sys_info_block_basic_traffic() {
    bool blocked = false;
    const int error = system_info_get_value_bool(block_basic_traffic_key, &blocked);
    return error == 0 && blocked;
}

bool get_support_reporter_value() {
    bool supported = true;
    const int error = system_info_get_custom_bool(support_key, &supported);
    return error != 0 || supported;
}

std::unordered_map<std::string, std::string> get_sys_info_impl() {
    REPORTER_INFO("get sys info for TIZEN");
    std::unordered_map<std::string, std::string> facts;
    facts["DTV_TYPE"] = get_sys_info_dtv_type();
    facts["PRODUCT_TYPE"] = get_sys_info_product_type();
    facts["DUID"] = get_sys_info_duid();
    facts["TIZEN_VERSION"] = get_sys_info_string_value(tizen_version_key);
    facts["PLATFORM_NAME"] = get_sys_info_string_value(platform_name_key);
    facts["SW_VERSION"] = get_sys_info_string_value(software_version_key);
    facts["SW_VERSION_MODEL"] = get_sys_info_string_value(software_version_model_key);
    facts["VENDOR"] = get_platform_info(vendor_key);
    facts["MANUFACTURER"] = get_custom_info(manufacturer_key);
    if (get_sys_info_block_basic_traffic()) {
        facts["LFD_BLOCK_BASIC_TRAFFIC_SUPPORT"] = "1";
    }
    facts["SUPPORT"] = get_support_reporter_value() ? "1" : "0";
    return facts;
}

std::unordered_map<std::string, std::string> get_sys_info() {
    REPORTER_INFO("get_sys_info");
    auto facts = get_sys_info_impl();
    REPORTER_INFO("sys vars:");
    for (const auto& [key, value] : facts) {
        REPORTER_INFO(key << " : " << value);
    }
    return facts;
}

bool get_user_agreement() {
    int value = 0;
    const int error = vconf_get_int(agreement_setting, &value);
    if (error != 0) {
        REPORTER_INFO("Failed to read vconf: " << error);
        return false;
    }
    const bool accepted = value == 1;
    REPORTER_INFO("User agreement value: " << (accepted ? "ACCEPT" : "REJECT"));
    return accepted;
}

bool is_user_agreement_accepted() {
    return get_user_agreement();
}

}  // namespace reporter
