#include "same_file.hpp"

#include <system_error>

namespace quenta_program {

namespace {

constexpr int most_links = 40; // the limit of Linux

std::filesystem::path place_of(const std::string& path) {
    std::error_code failure;
    std::filesystem::path place = std::filesystem::absolute(path, failure);
    if (!failure)
        place = std::filesystem::weakly_canonical(without_links(place), failure);
    return failure ? std::filesystem::path(path) : place;
}

} // namespace

std::filesystem::path without_links(std::filesystem::path path) {
    std::error_code failure;
    for (int i = 0; i < most_links && std::filesystem::is_symlink(path, failure); ++i) {
        const std::filesystem::path target = std::filesystem::read_symlink(path, failure);
        if (failure)
            break;
        path = path.parent_path() / target;
    }
    return path;
}

bool same_file(const std::string& one, const std::string& other) {
    std::error_code failure;
    return std::filesystem::is_regular_file(one, failure) && std::filesystem::equivalent(one, other, failure);
}

bool same_place(const std::string& one, const std::string& other) {
    return same_file(one, other) || place_of(one) == place_of(other);
}

} // namespace quenta_program
