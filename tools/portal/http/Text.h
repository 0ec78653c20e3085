#pragma once

#include <map>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// Percent-decoded; a percent sign without two hexadecimal digits stays.
std::string decoded(const std::string &text);
/// Percent-encoded but for ASCII letters, digits, "-", ".", "_" and "~".
std::string encoded(const std::string &text);
/// A path split at "/", each segment decoded.
std::vector<std::string> segments(const std::string &path);
/// The decoded members of a target's query; of a name that occurs twice, the first value.
std::map<std::string, std::string> queryOf(const std::string &target);
/// The target without its query.
std::string pathOf(const std::string &target);
/// The number of a text of 1 to 18 decimal digits; -1 for any other text.
long long numberOf(const std::string &text);
/// ASCII letters in lower case.
std::string lowered(std::string text);
/// Without blanks and tabs at its ends.
std::string trimmed(const std::string &text);

} // namespace VelmoraPortal
