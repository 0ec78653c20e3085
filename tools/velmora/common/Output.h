/// @file Output.h
/// Printing of results.
#ifndef VELMORA_CLI_OUTPUT_H
#define VELMORA_CLI_OUTPUT_H

#include "common/Options.h"
#include "common/Render.h"

#include <functional>
#include <list>
#include <utility>
#include <vector>

namespace Velmora::Cli {

/// Prints a command's result: the JSON document, or the text, which is then built.
void print(const Options &options, const QJsonObject &document, const std::function<QString()> &text);

/// The table, fitted to the terminal if standard output is one.
QString fitted(const Table &table);

/// Names and their values, one pair per line.
using Facts = std::vector<std::pair<const char *, QString>>;
QString fitted(const Facts &facts);

/// Every command shows jobs in this order.
void sortNewestFirst(std::list<JobDetails> &list);
Table jobTable(const std::list<JobDetails> &list);
QJsonObject jobListJson(const std::list<JobDetails> &list);

/// Asks on the terminal, unless `--yes` was given. Throws `Failure` unless the answer is yes.
void confirm(const Options &options, const QString &question);

/// A warning on standard error; nothing when quiet.
void warn(const Options &options, const QString &text);

} // namespace Velmora::Cli

#endif
