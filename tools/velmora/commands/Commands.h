/// @file Commands.h
/// The commands. Each prints its result, on success only, and throws `Failure` otherwise.
#ifndef VELMORA_CLI_COMMANDS_H
#define VELMORA_CLI_COMMANDS_H

#include "common/Options.h"

namespace Velmora::Cli {

using Command = void(const Options &options);

Command login;
Command logout;
Command config;
Command run;
Command newJob;
Command submit;
Command watch;
Command jobs;
Command job;
Command progress;
Command stop;
Command archive;
Command files;
Command upload;
Command download;
Command rm;
Command cat;
Command sync;
Command accounts;
Command balance;
Command me;
Command hpc;
Command event;
Command tag;
Command untag;
Command tags;
Command find;
Command validate;
Command status;

} // namespace Velmora::Cli

#endif
