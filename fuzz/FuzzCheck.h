// The fuzz targets' oracle: a failed check names itself through the
// sanitizers' report channel (kept when scripts/run-fuzz.sh drops the
// library's own stderr output) and aborts, which libFuzzer reports as a
// crash and saves the input for.
#ifndef TARVEL_FUZZ_CHECK_H
#define TARVEL_FUZZ_CHECK_H

#include <sanitizer/common_interface_defs.h>

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            char fuzzCheckText[512];                                                                                   \
            std::snprintf(fuzzCheckText, sizeof fuzzCheckText, "%s:%d: check failed: %s", __FILE__, __LINE__,          \
                          #condition);                                                                                 \
            __sanitizer_report_error_summary(fuzzCheckText);                                                           \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)

#endif
