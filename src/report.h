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
    std::uint32_t aggregationid = 0;     ///< like reports of one id are counted as one; 0: never
};

/// Names the stored report of one caller and file, to count another occurrence of it. Both stand in
/// the report's content, a JSON object, under these names.
struct ext_aggregation_data {
    std::string caller;
    std::string filehash;
};

}  // namespace reporter
