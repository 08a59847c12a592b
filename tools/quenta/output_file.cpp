#include "output_file.hpp"

#include "messages.hpp"
#include "same_file.hpp"
#include "temporary_files.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>

namespace quenta_program {

namespace {

bad_input unwritable(const std::string& path, const std::string& reason) {
    return bad_input(sentence("cannot write ", printable(path), ": ", reason));
}

// Creates a new file in the directory of the target: a rename cannot cross file systems.
std::FILE* create_beside(const std::filesystem::path& target, std::string& created) {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::filesystem::path path = target.parent_path() / sentence("quenta.", random(), ".part");
        std::FILE* const stream = create_temporary_file(path.string());
        if (stream != nullptr) {
            created = path.string();
            return stream;
        }
        if (errno != EEXIST)
            break;
    }
    return nullptr;
}

// Whether the path is a standard output stream or an open descriptor of this process.
bool is_open_file(const std::string& path) {
    return same_file("/dev/stdout", path) || same_file("/dev/stderr", path) || path.starts_with("/dev/fd/") ||
           path.starts_with("/proc/self/fd/");
}

} // namespace

void output_file::closing::operator()(std::FILE* file) const {
    if (file != stdout)
        std::fclose(file);
}

output_file::output_file(const std::string& path) : shown(path == "-" ? "standard output" : printable(path)) {
    if (path == "-") {
        stream.reset(stdout);
        return;
    }
    if (path.empty())
        throw bad_input("output: expected a file name, or - for standard output, got ''");
    std::error_code failure;
    const std::filesystem::file_status status = std::filesystem::status(path, failure);
    if (!std::filesystem::status_known(status))
        throw unwritable(path, failure.message());
    if (std::filesystem::is_directory(status))
        throw unwritable(path, "it is a directory");
    if (same_file("/dev/stdin", path))
        throw unwritable(path, "it is read as standard input");
    if (std::filesystem::exists(status)) {
        // "r+b" checks that the file may be written; it is replaced later.
        const bool is_appended = is_open_file(path);
        const bool is_replaced = std::filesystem::is_regular_file(status) && !is_appended;
        stream.reset(std::fopen(path.c_str(), is_appended ? "ab" : is_replaced ? "r+b" : "wb"));
        if (!stream)
            throw unwritable(path, std::strerror(errno));
        if (!is_replaced)
            return;
    }
    target = without_links(path).string();
    stream.reset(create_beside(target, temporary));
    if (!stream)
        throw unwritable(path, std::strerror(errno));
    if (std::filesystem::exists(status))
        std::filesystem::permissions(temporary, status.permissions(), failure);
}

output_file::~output_file() {
    stream.reset();
    if (!temporary.empty())
        remove_temporary_file(temporary);
}

void output_file::fail_writing() const {
    throw std::runtime_error(sentence("cannot write ", shown, ": ", std::strerror(errno)));
}

void output_file::write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stream.get()) != text.size())
        fail_writing();
}

void output_file::complete() {
    if (std::fflush(stream.get()) != 0)
        fail_writing();
    std::FILE* const finished = stream.release();
    if (finished != stdout && std::fclose(finished) != 0)
        fail_writing();
}

void output_file::publish() {
    if (temporary.empty())
        return;
    std::error_code failure;
    std::filesystem::rename(temporary, target, failure);
    if (failure)
        throw std::runtime_error(sentence("cannot write ", shown, ": ", failure.message()));
    forget_temporary_file(temporary);
    temporary.clear();
}

} // namespace quenta_program
