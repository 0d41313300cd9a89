#include <exception>

#include <vconf.h>

#include "doctor/examination.h"
#include "sys_info_values.h"

namespace report_tool::doctor {
namespace {

// As the sending pass asks: an enrolled device sends whatever the switch says.
bool examine_sending(group& gates, const reporter::config_helper& sender) {
    if (!sender.get<bool>("reporter_registration")) {
        gates.ok("enrolment", "reporter_registration is false: not needed");
        if (sender.get<bool>("reporter_sending")) {
            gates.ok("sending", "reporter_sending is true");
            return true;
        }
        gates.closed("sending", "off", "reporter_sending is false",
                     "set sender.reporter_sending to true");
        return false;
    }
    gates.ok("sending", "reporter_registration is true: reporter_sending is not asked");
    const std::string identifier = sender.get<std::string>("agent_registered_duid");
    if (identifier.empty()) {
        gates.closed("enrolment", "not-enrolled", "agent_registered_duid is empty",
                     "enrol the device, which sets sender.agent_registered_duid");
        return false;
    }
    gates.ok("enrolment", "enrolled as " + identifier);
    return true;
}

bool examine_consent(group& gates) {
    int value = 0;
    const std::string name = reporter::agreement_setting;
    if (const int error = vconf_get_int(reporter::agreement_setting, &value); error != 0) {
        gates.closed("consent", "missing",
                     name + " cannot be read, error " + std::to_string(error) + ": no consent",
                     "have the user accept the disclaimer");
        return false;
    }
    const std::string found = name + " is " + std::to_string(value);
    if (value != 1) {
        gates.closed("consent", "missing", found + ", consent is 1",
                     "have the user accept the disclaimer");
        return false;
    }
    gates.ok("consent", found);
    return true;
}

}  // namespace

void examine_gates(examination& whole) {
    group gates(whole, "gates");
    bool sending = false;
    try {
        if (whole.config) {
            sending = examine_sending(gates, whole.config->get_helper("sender"));
        } else {
            gates.skipped("sending", "no configuration");
        }
    } catch (const std::exception& error) {
        gates.skipped("sending", error.what());
    }
    whole.gates_open = examine_consent(gates) && sending;
}

}  // namespace report_tool::doctor
