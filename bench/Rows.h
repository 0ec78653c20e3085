#pragma once

#include <cstddef>
#include <functional>
#include <string>

/// What the benchmarks share: paired timings, printed as rows of a Markdown table, and files to work on.
/// Any error ends the program with a message.
namespace Bench {

[[noreturn]] void fail(const std::string &why);
void require(bool condition, const std::string &what);

/// The table's first two lines.
void head();
/// In every round, runs ours and the peer one after the other; who is first alternates. A pass before the first
/// round does not count. The row shows the median times and the median of the rounds' ratios.
/// `goal` is the largest acceptable ratio; 0 for none.
void row(const std::string &what, const std::string &peer, double goal, int rounds, const std::function<void()> &ours,
         const std::function<void()> &theirs);

/// A file of bytes that look random.
void writePlain(const std::string &path, std::size_t size);
void requireSame(const std::string &a, const std::string &b);
void run(const std::string &command);

} // namespace Bench
