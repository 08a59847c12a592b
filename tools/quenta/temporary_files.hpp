// Temporary files that do not outlive the program, even if a signal ends it.
#pragma once

#include <cstdio>
#include <string>

namespace quenta_program {

// Ends the program by SIGHUP, SIGINT, SIGQUIT, SIGTERM and SIGXCPU as usual, but removes the temporary files first. A
// signal that is ignored at the start stays ignored.
void remove_temporary_files_on_signals();

// Creates a file that did not exist before. Returns a null pointer with the reason in errno otherwise.
std::FILE* create_temporary_file(const std::string& path);

// The file has been renamed, or is removed here.
void forget_temporary_file(const std::string& path);
void remove_temporary_file(const std::string& path);

} // namespace quenta_program
