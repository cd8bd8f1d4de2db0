// The subcommands of `zorvex`.
#pragma once

namespace zorvex::cli {

int renderCommand(int argc, char** argv);
int effectsCommand(int argc, char** argv);
int settingsCommand(int argc, char** argv);
int benchCommand(int argc, char** argv);
int serveCommand(int argc, char** argv);
int lookCommand(int argc, char** argv);

// The text of `zorvex help`.
extern const char* const kUsage;

}  // namespace zorvex::cli
