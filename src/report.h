#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace reporter {

/// One report record, as report sources produce it and the storage script takes it.
struct report {
    std::int16_t module = 0;             ///< who produced it
    std::int16_t type = 0;               ///< kind of report within that module
    std::vector<unsigned char> content;  ///< opaque bytes
    /// Reports of one module, type and id that are due at one time are counted as one, with the
    /// first one's content: what the others hold is not kept. 0: never.
    std::uint32_t aggregationid = 0;
};

/// Names the stored report of one caller and file, to count another occurrence of it. Both stand in
/// the report's content, a JSON object, under these names.
struct ext_aggregation_data {
    std::string caller;
    std::string filehash;
};

}  // namespace reporter
