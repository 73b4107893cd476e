/*
 * The interface of version 1, as clients that were built with it call it. What does not compile here, or is not
 * found at its version, breaks them: the change needs another function, or another SONAME (NQ360_2.0).
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <nq360.h>
#include <stdio.h>

typedef int (*analyze_image_type)(const char*, const char*, int, int, NQ360_CALLBACK);
typedef int (*export_type)(const char*, const char*, const char*, const char*, int, int, int, int, int, int, int, int,
                           int, int, const char*, const char*, NQ360_CALLBACK, float, float, float, float, float,
                           float);
typedef int (*get_audio_type)(const char*, const char*, int, const char*, NQ360_CALLBACK);
typedef unsigned long long (*freesize_type)(const char*);
typedef void (*callback_type)(NQ360_STATE, const char*);

/* A function whose type is not exactly this one stops the compiler. */
#define SAME_TYPE(value, type) _Static_assert(_Generic((value), type : 1, default : 0), #value " is no " #type)

SAME_TYPE(&NQ360_analyze_image, analyze_image_type);
SAME_TYPE(&NQ360_export, export_type);
SAME_TYPE(&NQ360_get_audio, get_audio_type);
SAME_TYPE(&NQ360_freesize, freesize_type);
SAME_TYPE((NQ360_CALLBACK)0, callback_type);
SAME_TYPE(CORRECT_NONE, int);

_Static_assert(NQ360_STARTED == 0 && NQ360_PROGRESS == 1 && NQ360_FINISHED == 2 && NQ360_CANCELLED == 3 &&
                   NQ360_FAILED == 4,
               "the states keep their numbers");
_Static_assert(sizeof(NQ360_STATE) == 4, "a state is a 32-bit number");
_Static_assert(CORRECT_NONE == -99999999, "the mark for no correction keeps its value");

int main(void) {
    static const char* const names[] = {"NQ360_analyze_image", "NQ360_export", "NQ360_get_audio", "NQ360_freesize"};
    void* library = dlopen("libnq360.so.1", RTLD_NOW);
    if (!library) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    int missing = 0;
    for (size_t i = 0; i < sizeof names / sizeof names[0]; ++i) {
        if (!dlvsym(library, names[i], "NQ360_1.0")) {
            fprintf(stderr, "%s\n", dlerror());
            ++missing;
        }
    }
    return missing;
}
