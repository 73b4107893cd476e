#include "base/thrown_text.h"

#include <exception>

namespace {

std::string raw_text() {
    try {
        throw;
    } catch (const char* text) {
        return text;
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "an exception without a text";
    }
}

}  // namespace

std::string on_one_line(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20) {
            c = ' ';
        }
    }
    return text;
}

std::string thrown_text() {
    return on_one_line(raw_text());
}
