#pragma once

#include <string>

#include <httplib.h>

#include "plan.h"

namespace collector {

/// The part of an answer that is sent before it breaks off.
std::string cut_answer(const httplib::Response& response, cut_point cut);

}  // namespace collector
