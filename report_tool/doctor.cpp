#include "command.h"
namespace report_tool {
command doctor_command() {
    return {"doctor", "What keeps reports in this device, and what to do", [](CLI::App&) {},
            [](const common_options&) { return 0; }};
}
}  // namespace report_tool
