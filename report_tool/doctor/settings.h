#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "doctor/examination.h"

namespace report_tool::doctor {

enum class kind { text, number, truth };

/// Who reads a setting, and so what becomes of a value that does not fit.
enum class reader {
    agent,   ///< the pass ends there
    script,  ///< taken as 0
};

struct setting {
    const char* object;  ///< "" for the document itself
    const char* name;
    kind type;
    reader who;
    /// What is used where the value is absent; null where it has to be there.
    const char* fallback;

    std::string path() const { return *object == '\0' ? name : std::string(object) + "." + name; }
};

/// Every setting that the agent and the shipped script read, in the order of the shipped file.
const std::vector<setting>& known_settings();

/// What is to be said about one value, null for an absent one.
void examine_setting(group& configuration, const setting& one, const Json::Value& value);

/// The known name in an object that is nearest to a misspelt one; empty when none is near.
std::string nearest_setting(const std::string& object, const std::string& name);

}  // namespace report_tool::doctor
