// The fuzz targets' oracle: a failed check names itself and aborts, which
// libFuzzer reports as a crash and saves the input for.
#ifndef TARVEL_FUZZ_CHECK_H
#define TARVEL_FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                         \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)

#endif
