// host/commands/program.h: the program as a function.
#ifndef QUORVANE_HOST_COMMANDS_PROGRAM_H_
#define QUORVANE_HOST_COMMANDS_PROGRAM_H_

namespace quorvane::host {

// Runs the program: exit code as the shell sees it. Errors have been printed.
int RunProgram(int argc, const char* const* argv);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_PROGRAM_H_
