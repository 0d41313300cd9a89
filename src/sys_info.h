#pragma once

#include <string>
#include <unordered_map>

namespace reporter {

// Facts about the device and the user's consent, read from the platform at each call. Any thread.
// No reader reports a failure: unless said otherwise, a value that cannot be read is the empty
// string. docs/device.md lists the facts, and says where one is added.

/// All facts by name, logged one line each. "LFD_BLOCK_BASIC_TRAFFIC_SUPPORT" is there only when
/// set; every other name always is.
std::unordered_map<std::string, std::string> get_sys_info();

/// The same without the lines of the facts.
std::unordered_map<std::string, std::string> get_sys_info_impl();

/// Broadcast standard: "ATSC", "DVB" or "ISDB".
std::string get_sys_info_dtv_type();

/// Kind of device: "TV", "MONITOR", "BD", "PROJECTOR", "LFD", "SMD", "NETWORK_AUDIO", "SOUNDBAR",
/// "HTV" or "AI_SPK".
std::string get_sys_info_product_type();

/// Identifier of this device, "EMPTYDUID" when it has none.
std::string get_sys_info_duid();

/// Whether the device's basic traffic is blocked; false when it cannot be read.
bool get_sys_info_block_basic_traffic();

/// True when it cannot be read: a device counts as supported until it says otherwise.
bool get_support_reporter_value();

/// Whether the user has accepted the data-collection disclaimer; false when it cannot be read.
bool get_user_agreement();
/// The same by another name.
bool is_user_agreement_accepted();

}  // namespace reporter
