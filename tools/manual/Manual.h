/// @file Manual.h
/// The manual page, generated from the help texts.
#ifndef VELMORA_CLI_MANUAL_H
#define VELMORA_CLI_MANUAL_H

#include <string>

namespace CLI {
class App;
}

namespace Velmora::Cli {

/// The page of section 1 for man(1), in roff. The first sentence of the description names the program.
/// @param sharedGroup the group of options that every command takes; they are listed once.
std::string manualPage(const CLI::App &app, const std::string &sharedGroup = {});

} // namespace Velmora::Cli

#endif
