// For a program that puts a function of its own in a library's place: the one that it replaces.
#pragma once

#include <dlfcn.h>

namespace test_support {

// `name` is that of `replaced`, whose address is the program's own.
template <typename Function>
Function* real_function(Function* /*replaced*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace test_support
