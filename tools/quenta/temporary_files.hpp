// Temporary files that are removed even if a signal ends the program.
#pragma once

#include <cstdio>
#include <string>

namespace quenta_program {

// From now on SIGHUP, SIGINT, SIGQUIT, SIGTERM and SIGXCPU remove the temporary files before they end the program. A
// signal that is ignored at the start stays ignored.
void remove_temporary_files_on_signals();

// Creates a new file. Returns a null pointer and sets errno if it exists or cannot be created.
std::FILE* create_temporary_file(const std::string& path);

// Keeps the file: call this after it has been renamed.
void forget_temporary_file(const std::string& path);

void remove_temporary_file(const std::string& path);

} // namespace quenta_program
