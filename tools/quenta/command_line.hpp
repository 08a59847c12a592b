// The command line: commands, options and help texts.
#pragma once

namespace quenta_program {

// Parses the arguments and runs the command. Returns the exit code; throws bad_input on arguments that it does not
// take.
int run_command_line(int argc, char** argv);

} // namespace quenta_program
