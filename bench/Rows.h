#pragma once

#include <cstddef>
#include <functional>
#include <string>

/// What the benchmarks share: paired timings, printed as rows of a Markdown table, and files to work on.
/// Whatever goes wrong ends the program with a message.
namespace Bench {

[[noreturn]] void fail(const std::string &why);
void require(bool condition, const std::string &what);

/// The table's first two lines.
void head();
/// Runs ours and the peer one after the other in every round, in turns which of them first, after one pass that
/// does not count. The row shows the medians of the times and the median of the rounds' ratios.
/// `goal` is the largest ratio that is good enough; 0: none is set.
void row(const std::string &what, const std::string &peer, double goal, int rounds, const std::function<void()> &ours,
         const std::function<void()> &theirs);

/// A file of bytes that look random.
void writePlain(const std::string &path, std::size_t size);
void requireSame(const std::string &a, const std::string &b);
void run(const std::string &command);

} // namespace Bench
