#pragma once

namespace reporter {

/// One sending pass with all that it needs, until it has ended or SIGTERM has stopped it; takes
/// SIGTERM over. Once in a process. Throws what keeps a pass from starting.
void run_sending_pass();

}  // namespace reporter
