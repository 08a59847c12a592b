// The command line: commands, options and help texts.
#pragma once

namespace quenta_program {

// Parses the arguments, runs the command and returns its exit code. Throws bad_input on wrong arguments.
int run_command_line(int argc, char** argv);

} // namespace quenta_program
