// An output that appears whole or not at all.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace quenta_program {

// Text goes to a temporary file beside the target. `complete` has all of it written out, and `publish` then puts it in
// the target's place; what is not published is removed with the object, and by a signal that ends the program. "-" is
// standard output, and what is neither absent nor a regular file (a device, a pipe) is written directly: neither can be
// replaced.
class output_file {
public:
    // Throws bad_input if the target cannot be written.
    explicit output_file(const std::string& path);
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    // Both throw std::runtime_error if the text cannot be written out.
    void write(std::string_view text);
    void complete();
    void publish();

private:
    struct closing {
        void operator()(std::FILE* stream) const;
    };

    [[noreturn]] void fail_writing() const;

    std::string shown;     // as messages call the target
    std::string target;    // the file at the end of the path's links, or the place where it will be
    std::string temporary; // empty once published, and if the target is written directly
    std::unique_ptr<std::FILE, closing> stream;
};

} // namespace quenta_program
