// Every number the tool reads from its command line goes through one parser,
// so that all accept the same forms (decimal; 0x hexadecimal for whole
// numbers) and fail with the same kind of message: "NAME: TEXT is not
// a whole number from 1 to 1000000".
#ifndef TARVEL_TOOL_NUMBERS_H
#define TARVEL_TOOL_NUMBERS_H

#include <cstdint>
#include <string>

namespace tool {

constexpr uint64_t kNoLimit = UINT64_MAX;

struct NumberRule {
    std::string noun = "a whole number"; // what the text must be: "a number of seconds"
    uint64_t min = 0;
    uint64_t max = kNoLimit; // kNoLimit: no upper limit
    bool fraction = false;   // decimal fractions allowed (whole numbers only otherwise)
    bool hexLimits = false;  // show the limits in hexadecimal
    // "a whole number from 1 to 1000000", "a number of seconds ≥ 0".
    std::string describe() const;
};

NumberRule wholeNumber(uint64_t min, uint64_t max, bool hexLimits = false);
NumberRule milliseconds(uint64_t min, uint64_t max);
NumberRule seconds(); // fractions allowed, ≥ 0

struct NumberCheck {
    std::string error;    // "" when the text follows the rule, else "TEXT is not ..."
    bool isWhole = false; // decimal or 0x digits, value in `whole`
    uint64_t whole = 0;
    double value = 0;
};
NumberCheck checkNumber(const std::string& text, const NumberRule& rule);

// A whole number; throws UsageError("NAME: TEXT is not ...").
uint64_t parseNumber(const std::string& text, const NumberRule& rule, const std::string& name);

} // namespace tool

#endif
