#include "output_file.hpp"

#include "messages.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>

namespace quenta_program {

namespace {

bad_input unwritable(const std::string& path, const char* reason) {
    return bad_input(sentence("cannot write ", path, ": ", reason));
}

// A file that did not exist before, in the directory of the target, so that a rename reaches it.
std::FILE* create_beside(const std::filesystem::path& target, std::string& created) {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::filesystem::path path = target;
        path += sentence(".", random(), ".part");
        std::FILE* const stream = std::fopen(path.string().c_str(), "wbx");
        if (stream != nullptr) {
            created = path.string();
            return stream;
        }
        if (errno != EEXIST)
            break;
    }
    return nullptr;
}

} // namespace

void output_file::closing::operator()(std::FILE* file) const {
    if (file != stdout)
        std::fclose(file);
}

output_file::output_file(const std::string& path) : shown(path == "-" ? "standard output" : path), target(path) {
    if (path == "-") {
        stream.reset(stdout);
        return;
    }
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(path, ignored);
    if (std::filesystem::is_directory(status))
        throw unwritable(path, "it is a directory");
    if (std::filesystem::exists(status)) {
        // A file is replaced only if it could also have been overwritten.
        stream.reset(std::fopen(path.c_str(), std::filesystem::is_regular_file(status) ? "r+b" : "wb"));
        if (!stream)
            throw unwritable(path, std::strerror(errno));
        if (!std::filesystem::is_regular_file(status))
            return;
        target = std::filesystem::canonical(path).string();
    }
    stream.reset(create_beside(target, temporary));
    if (!stream)
        throw unwritable(path, std::strerror(errno));
    if (std::filesystem::exists(status))
        std::filesystem::permissions(temporary, status.permissions(), ignored);
}

output_file::~output_file() {
    stream.reset();
    if (!temporary.empty())
        std::remove(temporary.c_str());
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
    std::filesystem::rename(temporary, target);
    temporary.clear();
}

} // namespace quenta_program
