/// @file Words.h
/// What may stand on a command line: for completion, and to suggest what was meant.
#ifndef VELMORA_CLI_WORDS_H
#define VELMORA_CLI_WORDS_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Velmora::Cli {

struct Options;

/// The names of the commands that the help lists.
std::vector<std::string> commandNames(const CLI::App &app);

/// Names a command or an option that does not exist, with one that may be meant; empty when all exist.
std::string mistakeIn(const CLI::App &app, const std::vector<std::string> &arguments);

/// What may take the place of the last word, one per line, an explanation behind a tab. ":files" and ":folders" stand
/// for local ones. Jobs and their files come from the service, if the user is signed in: nothing is asked, and nothing
/// is waited for longer than a second.
/// @param words  all after the program's name; a shell may have split "--option=value" in three
/// @param options  receives those that choose the service
std::string completions(CLI::App &app, std::vector<std::string> words, Options &options);

} // namespace Velmora::Cli

#endif
