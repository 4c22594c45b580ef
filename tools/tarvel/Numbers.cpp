// The one parser of numbers, and the CLI11 check that puts it in front of
// every numeric option.
#include "Numbers.h"

#include <CLI/CLI.hpp>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "Commands.h"

namespace tool {
namespace {

std::string limitText(uint64_t value, bool hex) {
    char b[32];
    std::snprintf(b, sizeof b, hex && value != 0 ? "0x%" PRIX64 : "%" PRIu64, value);
    return b;
}

int digitValue(char c, unsigned base) {
    int d = -1;
    if (c >= '0' && c <= '9') d = c - '0';
    if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
    if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
    return d >= 0 && static_cast<unsigned>(d) < base ? d : -1;
}

// Decimal, or hexadecimal after 0x; false on anything else or overflow.
bool readWhole(const std::string& text, uint64_t& out) {
    unsigned base = 10;
    std::size_t i = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        i = 2;
    }
    if (i >= text.size()) return false;
    uint64_t value = 0;
    for (; i < text.size(); ++i) {
        int d = digitValue(text[i], base);
        if (d < 0 || value > (UINT64_MAX - static_cast<unsigned>(d)) / base) return false;
        value = value * base + static_cast<unsigned>(d);
    }
    out = value;
    return true;
}

// Digits with at most one decimal point: no sign, exponent, "inf" or "nan".
bool readDecimal(const std::string& text, double& out) {
    bool digit = false, point = false;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digit = true;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return false;
        }
    }
    if (!digit) return false;
    out = std::strtod(text.c_str(), nullptr);
    return true;
}

} // namespace

std::string NumberRule::describe() const {
    if (max == kNoLimit) return noun + " \u2265 " + limitText(min, hexLimits);
    return noun + " from " + limitText(min, hexLimits) + " to " + limitText(max, hexLimits);
}

NumberRule wholeNumber(uint64_t min, uint64_t max, bool hexLimits) {
    NumberRule rule;
    rule.min = min;
    rule.max = max;
    rule.hexLimits = hexLimits;
    return rule;
}

NumberRule milliseconds(uint64_t min, uint64_t max) {
    NumberRule rule = wholeNumber(min, max);
    rule.noun = "a whole number of milliseconds";
    return rule;
}

NumberRule seconds() {
    NumberRule rule;
    rule.noun = "a number of seconds";
    rule.fraction = true;
    return rule;
}

NumberCheck checkNumber(const std::string& text, const NumberRule& rule) {
    NumberCheck result;
    bool ok = false;
    if (readWhole(text, result.whole)) {
        result.value = static_cast<double>(result.whole);
        result.isWhole = true;
        ok = result.whole >= rule.min && result.whole <= rule.max;
    } else if (rule.fraction && readDecimal(text, result.value)) {
        ok = result.value >= static_cast<double>(rule.min) &&
             (rule.max == kNoLimit || result.value <= static_cast<double>(rule.max));
    }
    if (!ok) result.error = text + " is not " + rule.describe();
    return result;
}

uint64_t parseNumber(const std::string& text, const NumberRule& rule, const std::string& name) {
    NumberCheck check = checkNumber(text, rule);
    if (!check.error.empty()) throw UsageError(name + ": " + check.error);
    return check.whole;
}

CLI::Validator numberCheck(const NumberRule& rule) {
    std::string range;
    // For --help: a range worth reading (not the bounds of a counter).
    if (rule.max < 0xFFFFFFFFu)
        range = limitText(rule.min, rule.hexLimits) + ".." + limitText(rule.max, rule.hexLimits);
    return CLI::Validator(
        [rule](std::string& text) {
            NumberCheck check = checkNumber(text, rule);
            // CLI11 converts the text itself: hand whole numbers on in decimal.
            if (check.error.empty() && check.isWhole) text = std::to_string(check.whole);
            return check.error;
        },
        range);
}

} // namespace tool
