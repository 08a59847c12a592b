// An output file that is written completely or not at all.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace quenta_program {

// Text is written to a temporary file in the directory of the target. `complete` flushes and closes it, and `publish`
// renames it to the target. The destructor removes a file that is not published, and so does a signal that ends the
// program. "-" (standard output), devices and pipes are written directly, because they cannot be replaced.
class output_file {
public:
    // Throws bad_input if the target cannot be written.
    explicit output_file(const std::string& path);
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    // All throw std::runtime_error if writing fails.
    void write(std::string_view text);
    void complete();
    void publish();

private:
    struct closing {
        void operator()(std::FILE* stream) const;
    };

    [[noreturn]] void fail_writing() const;

    std::string shown;     // name of the target in messages
    std::string target;    // the path without symbolic links
    std::string temporary; // empty after publish, and if the target is written directly
    std::unique_ptr<std::FILE, closing> stream;
};

} // namespace quenta_program
