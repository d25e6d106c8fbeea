// A condition that has to hold.
#pragma once

#include <sstream>
#include <stdexcept>

namespace tavik_test {

// Throws std::runtime_error with the parts of the message in a row unless the condition holds.
template <typename... Parts>
void require(bool condition, const Parts &...parts) {
    if (condition) return;
    std::ostringstream message;
    (message << ... << parts);
    throw std::runtime_error(message.str());
}

}  // namespace tavik_test
