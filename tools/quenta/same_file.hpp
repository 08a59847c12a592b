// Whether two paths lead to the same file, through any links.
#pragma once

#include <filesystem>
#include <string>

namespace quenta_program {

// Follows a chain of symbolic links. The file at its end need not exist.
std::filesystem::path without_links(std::filesystem::path path);

// True if both paths lead to the same existing regular file.
bool same_file(const std::string& one, const std::string& other);

// True also if the file does not exist yet, or is a device.
bool same_place(const std::string& one, const std::string& other);

} // namespace quenta_program
