#pragma once

#include <map>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// Percent signs with two hexadecimal digits turned into bytes; anything else as it stands.
std::string decoded(const std::string &text);
/// Every byte other than ASCII letters, digits, "-", ".", "_" and "~" percent-encoded.
std::string encoded(const std::string &text);
/// A path split at "/", each segment decoded.
std::vector<std::string> segments(const std::string &path);
/// The decoded members of a target's query; a name seen twice keeps its first value.
std::map<std::string, std::string> queryOf(const std::string &target);
/// The target without its query.
std::string pathOf(const std::string &target);
/// A number of decimal digits only, or -1 (also when it is beyond 18 digits).
long long numberOf(const std::string &text);
/// ASCII letters in lower case.
std::string lowered(std::string text);
/// Without blanks and tabs at its ends.
std::string trimmed(const std::string &text);

} // namespace VelmoraPortal
