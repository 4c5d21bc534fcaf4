// The catalogue of log lines, docs/log-lines.md, by which a line can be looked up.
#ifndef IXFS_TESTS_LOG_CATALOGUE_H
#define IXFS_TESTS_LOG_CATALOGUE_H

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

class LogCatalogue
{
public:
    // Reads "| `tag`, `tag` | severity | `text` | meaning |" rows. Throws std::runtime_error for a
    // line of a table that is no such row.
    explicit LogCatalogue(const std::string& path);

    // The project's own catalogue. Read at the first call, and the same for the whole program.
    static const LogCatalogue& of_the_project();

    // Whether the row of this tag for the message has this severity. It is the one whose text can
    // become the whole message, or its front where the message was cut; of several, the one that
    // leaves least to values. Allocates nothing.
    bool has(int severity, std::string_view tag, std::string_view message) const;

    // The text of that row; empty if no row of this tag is for the message. Allocates nothing.
    std::string_view text_for(std::string_view tag, std::string_view message) const;

    // Whether a row marked "job log" has a text that can become the message.
    bool has_in_job_log(std::string_view message) const;

    // The rows with such a text, whatever their severity and tag: where to look for what is wrong.
    std::string rows_with_text_of(std::string_view message) const;

private:
    // A text between two values of a row, and what stands for the value behind it: 's', 'd', or
    // '\0' at the end of the row's text.
    struct Piece {
        std::string text;
        char value;
    };
    using Pieces = std::vector<Piece>;

    struct Row {
        std::string source;
        std::string text;
        int severity;
        Pieces pieces;
        std::size_t fixed; // characters that are no value
        bool in_job_log;
    };

    void add(const std::string& row);
    const Row* closest(std::string_view tag, std::string_view message) const;
    static Pieces pieces_of(const std::string& text);
    static bool matches(const Pieces& pieces, std::string_view message);
    static bool matches_from(const Piece* piece, std::string_view message, bool is_cut);

    std::map<std::string, std::vector<Row>, std::less<>> rows_; // by tag
};

#endif
