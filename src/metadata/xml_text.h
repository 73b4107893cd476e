// Text that goes into XML.
#pragma once

#include <string>

// The text as the content of an element, in UTF-8: markup escaped, and U+FFFD for each byte that is neither part of
// UTF-8 nor a character that XML allows.
std::string escape_xml(const std::string& text);
