#include "modules/answer.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "common.h"

namespace reporter::modules {

Json::Value parse_response(const std::string& response) {
    try {
        return json_parse(response);
    } catch (const std::exception&) {
        throw std::runtime_error("bad response, isn't a json");
    }
}

std::vector<unsigned int> filter_ids_for_remove(const std::vector<unsigned int>& codes,
                                                const std::vector<unsigned int>& ids) {
    std::vector<unsigned int> settled;
    const std::size_t pairs = std::min(codes.size(), ids.size());
    for (std::size_t i = 0; i < pairs; ++i) {
        if (codes[i] == code_taken || codes[i] == code_refused) {
            settled.push_back(ids[i]);
        }
    }
    return settled;
}

}  // namespace reporter::modules
