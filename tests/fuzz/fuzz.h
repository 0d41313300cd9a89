#pragma once

#include <cassert>
#include <string>

/// Runs one input; each target defines it. What must hold for every input is asserted.
void fuzz_one(const std::string& input);

/// Takes the first line off the input, or all of it when it has no line end.
std::string take_line(std::string& input);
