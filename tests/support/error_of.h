#pragma once

#include <stdexcept>
#include <string>

namespace test_support {

/// Text of the `Exception` that the call throws, "nothing thrown" when it throws none.
template <class Exception = std::runtime_error, class Call>
std::string error_of(Call call) {
    try {
        call();
    } catch (const Exception& error) {
        return error.what();
    }
    return "nothing thrown";
}

}  // namespace test_support
