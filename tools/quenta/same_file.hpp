// Whether two paths lead to one file, whatever links they pass.
#pragma once

#include <filesystem>
#include <string>

namespace quenta_program {

// The path at the end of a chain of symbolic links, whether or not there is a file.
std::filesystem::path without_links(std::filesystem::path path);

// True if both are the name of one regular file that exists.
bool same_file(const std::string& one, const std::string& other);

// True also of two paths at which one file would be created, or that lead to one device.
bool same_place(const std::string& one, const std::string& other);

} // namespace quenta_program
