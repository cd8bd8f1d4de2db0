// The subcommands of `zorvex`.
#pragma once

#include <string>

namespace zorvex::cli {

int renderCommand(int argc, char** argv);
int effectsCommand(int argc, char** argv);
int settingsCommand(int argc, char** argv);
int benchCommand(int argc, char** argv);
int serveCommand(int argc, char** argv);
int lookCommand(int argc, char** argv);

class Args;

// Prints the usage of one command on standard output, as its --help does. Gives the exit code.
int commandHelp(const std::string& command);
// The core's diagnostic lines go to standard error with -v (--verbose), and never with -q (--quiet).
void applyVerbosity(const Args& args);

}  // namespace zorvex::cli
