// Numbers with SI suffixes, as a person types and reads them: 2.4G, 100M, 10k.
#ifndef QOR_TOOL_SI_UNITS_H
#define QOR_TOOL_SI_UNITS_H

#include <optional>
#include <string>

namespace qortool {

// "2.4G" -> 2.4e9; accepts k, M, G (and K, m for milli is not a frequency), an
// optional "Hz", and plain numbers in any C notation. Nothing for malformed text.
std::optional<double> ParseSi(const std::string& text);

// ParseSi for the value of a command-line option; throws ToolError naming the
// option when the text is no number.
double ParseFrequency(const std::string& text, const char* option);

// 2.4e9 -> "2.4 GHz" with at most `digits` significant digits.
std::string FormatHz(double hz, int digits = 6);

}  // namespace qortool

#endif
