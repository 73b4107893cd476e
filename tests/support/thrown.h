// The text that an action throws.
#pragma once

#include <string>

namespace test_support {

// Empty when nothing is thrown. Only texts are caught: anything else fails the test.
template <typename Action>
std::string thrown(Action&& action) {
    try {
        action();
    } catch (const char* text) {
        return text;
    }
    return "";
}

}  // namespace test_support
