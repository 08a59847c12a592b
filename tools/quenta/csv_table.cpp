#include "csv_table.hpp"

#include "messages.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <csv.h>
#include <exception>
#include <fstream>
#include <iostream>
#include <istream>
#include <iterator>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace quenta_program {

namespace {

std::string line_place(const std::string& source, std::size_t line) {
    return sentence(source, ", line ", line, ": ");
}

// Splits lines into fields with libcsv in strict mode. `finished` holds the rows that end on the line just fed.
//
// libcsv supports neither comments nor line numbers, so lines are fed to it one by one.
class row_splitter {
public:
    row_splitter() {
        if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0)
            throw std::runtime_error("cannot initialize the CSV parser");
    }
    ~row_splitter() { csv_free(&parser); }
    row_splitter(const row_splitter&) = delete;
    row_splitter& operator=(const row_splitter&) = delete;

    void separate_at(char separator) { csv_set_delim(&parser, static_cast<unsigned char>(separator)); }

    // Returns false if the quotes are malformed.
    bool feed(std::string& line) {
        line += '\n';
        row_is_open = row_is_open || !is_blank(line);
        const std::size_t parsed = csv_parse(&parser, line.data(), line.size(), take_field, take_row_end, this);
        return settle(parsed == line.size());
    }
    bool finish() { return settle(csv_fini(&parser, take_field, take_row_end, this) == 0); }

    // True inside a quoted field that continues on the next line.
    bool inside_row() const { return row_is_open; }

    std::vector<std::vector<std::string>> finished;

private:
    static bool is_blank(const std::string& line) { return line.find_first_not_of(" \t\r\n") == std::string::npos; }

    // libcsv is C code, so no exception may pass through it: `settle` rethrows it after the parser has returned.
    template <class action>
    static void guarded(void* self, const action& act) noexcept {
        row_splitter& splitter = *static_cast<row_splitter*>(self);
        try {
            act(splitter);
        } catch (...) {
            splitter.failure = std::current_exception();
        }
    }
    static void take_field(void* text, std::size_t length, void* self) {
        guarded(self,
                [=](row_splitter& splitter) { splitter.fields.emplace_back(static_cast<const char*>(text), length); });
    }
    static void take_row_end(int, void* self) {
        guarded(self, [](row_splitter& splitter) {
            splitter.finished.push_back(std::move(splitter.fields));
            splitter.fields.clear();
            splitter.row_is_open = false;
        });
    }

    bool settle(bool parsed) {
        if (failure)
            std::rethrow_exception(failure);
        if (!parsed && csv_error(&parser) == CSV_ENOMEM)
            throw std::bad_alloc();
        return parsed;
    }

    csv_parser parser{};
    std::vector<std::string> fields;
    std::exception_ptr failure;
    bool row_is_open = false;
};

// Up to 12 names; of more, the first 11 and the last.
std::string listed(const std::vector<std::string>& names) {
    constexpr std::size_t most = 12;
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (i + 1 < most || i + 1 == names.size())
            text.append(i == 0 ? "" : i + 1 == names.size() ? " and " : ", ").append(in_quotes(names[i]));
        else if (i + 1 == most)
            text += " ..";
    return text;
}

// The most frequent of comma, semicolon and tab outside quotes; a comma in case of a tie.
char separator_of(std::string_view header) {
    constexpr std::array candidates{',', ';', '\t'};
    std::array<std::size_t, candidates.size()> found{};
    bool quoted = false;
    for (const char character : header) {
        quoted = quoted != (character == '"');
        for (std::size_t i = 0; i < candidates.size(); ++i)
            found[i] += !quoted && character == candidates[i] ? 1 : 0;
    }
    return candidates[static_cast<std::size_t>(std::max_element(found.begin(), found.end()) - found.begin())];
}

// What was expected in a field that is no readable number.
std::string_view expectation(std::string_view field) {
    if (field.find(',') != std::string_view::npos)
        return "expected a number with a decimal point";
    if (read_number(field, out_of_range::is_infinite))
        return "expected a number below 1.8e308";
    return "expected a number";
}

// Fills a table row by row; the first row is the header.
class table_builder {
public:
    table_builder(csv_table& filled, const column_choice& chosen) : table(filled), choose(chosen) {}

    void take(std::size_t line, const std::vector<std::string>& fields) {
        if (header.empty())
            take_header(line, fields);
        else
            take_numbers(line, fields);
    }
    bool has_header() const { return !header.empty(); }

private:
    void take_header(std::size_t line, const std::vector<std::string>& fields) {
        table.names = choose(fields);
        table.columns.resize(table.names.size());
        std::unordered_multimap<std::string_view, std::size_t> places;
        for (std::size_t i = 0; i < fields.size(); ++i)
            places.emplace(fields[i], i);
        std::vector<bool> is_used(fields.size());
        for (const std::string& name : table.names) {
            const auto [found, end] = places.equal_range(name);
            if (found == end)
                throw bad_input(sentence(
                    line_place(table.source, line), "no column ", in_quotes(name), ": expected ", listed(table.names),
                    fields.size() == 1 ? ", separated by commas, semicolons or tabs" : "", ", got ", listed(fields)));
            if (std::next(found) != end)
                throw bad_input(sentence(line_place(table.source, line), "expected one column ", in_quotes(name),
                                         ", got ", std::distance(found, end)));
            positions.push_back(found->second);
            is_used[found->second] = true;
        }
        std::vector<std::string> unused;
        for (std::size_t i = 0; i < fields.size(); ++i)
            if (!is_used[i])
                unused.push_back(fields[i]);
        if (!unused.empty())
            note(line_place(table.source, line), unused.size() == 1 ? "the column " : "the columns ", listed(unused),
                 unused.size() == 1 ? " is not used" : " are not used");
        header = fields;
    }

    void take_numbers(std::size_t line, const std::vector<std::string>& fields) {
        if (fields.size() != header.size())
            throw bad_input(sentence(line_place(table.source, line), "expected ", header.size(),
                                     " fields as in the header, got ", fields.size()));
        for (std::size_t i = 0; i < positions.size(); ++i) {
            const std::string& field = fields[positions[i]];
            const std::optional<double> value = read_number(field);
            if (!value)
                throw bad_input(sentence(line_place(table.source, line), "column ", in_quotes(table.names[i]), ": ",
                                         expectation(field), ", got ", in_quotes(field)));
            table.columns[i].push_back(*value);
        }
        // A number contains no line end, even in quotes.
        table.first_fields.append(fields[positions.front()]) += '\n';
        table.lines.push_back(line);
    }

    csv_table& table;
    const column_choice& choose;
    std::vector<std::string> header;
    std::vector<std::size_t> positions; // of table.names in the header
};

csv_table read_stream(std::istream& stream, std::string source, const column_choice& choose) {
    csv_table table{std::move(source), {}, {}, {}, {}};
    table_builder builder(table, choose);
    row_splitter splitter;
    std::size_t line_number = 0;
    std::size_t row_line = 0; // first line of the current row

    const auto pass_on = [&](bool parsed) {
        if (!parsed)
            throw bad_input(sentence(line_place(table.source, row_line), "malformed quotes: expected \"...\" around ",
                                     "the whole field, with \"\" for a quote inside"));
        for (const std::vector<std::string>& fields : splitter.finished)
            builder.take(row_line, fields);
        splitter.finished.clear();
    };

    errno = 0;
    for (std::string line; std::getline(stream, line);) {
        ++line_number;
        if (line_number == 1 && line.starts_with("\xEF\xBB\xBF"))
            line.erase(0, 3); // byte-order mark of UTF-8
        if (line_number == 1 && (line.starts_with("\xFF\xFE") || line.starts_with("\xFE\xFF")))
            throw bad_input(sentence(table.source, ": expected UTF-8, got UTF-16"));
        if (!splitter.inside_row()) {
            if (line.starts_with('#'))
                continue;
            row_line = line_number;
            if (!builder.has_header())
                splitter.separate_at(separator_of(line));
        }
        pass_on(splitter.feed(line));
    }
    if (stream.bad())
        throw bad_input(sentence("cannot read ", table.source, ": ", std::strerror(errno != 0 ? errno : EIO)));
    pass_on(splitter.finish());
    if (!builder.has_header())
        throw bad_input(sentence(table.source, " is empty; expected a header with the columns ", listed(choose({})),
                                 " and a row for each sample"));
    return table;
}

} // namespace

std::optional<double> read_number(std::string_view text, out_of_range treatment) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-')
        text.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size() || error == std::errc::invalid_argument)
        return std::nullopt;
    if (error == std::errc::result_out_of_range) {
        value = std::strtod(std::string(text).c_str(), nullptr);
        if (std::isinf(value) && treatment == out_of_range::is_refused)
            return std::nullopt;
    }
    return value;
}

const std::vector<double>& csv_table::column(const std::string& name) const {
    return columns.at(static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin()));
}

std::string csv_table::place(std::size_t row) const {
    return line_place(source, lines.at(row));
}

std::string csv_table::first_field(std::size_t row) const {
    std::size_t start = 0;
    for (; row > 0; --row)
        start = first_fields.find('\n', start) + 1;
    return first_fields.substr(start, first_fields.find('\n', start) - start);
}

csv_table read_csv_table(const std::string& path, const column_choice& choose) {
    if (path == "-")
        return read_stream(std::cin, "standard input", choose);
    if (path.empty())
        throw bad_input("input: expected a file name, or - for standard input, got ''");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw bad_input(sentence("cannot open ", printable(path), ": ", std::strerror(errno)));
    return read_stream(file, printable(path), choose);
}

} // namespace quenta_program
