#pragma once

#include <cassert>
#include <string>

/// Runs one input; each target defines it. What must hold for every input is asserted.
void fuzz_one(const std::string& input);

/// Takes the first line, or all without one, off the input.
std::string take_line(std::string& input);
