// The text of a log row, in which some places stand for values.
#ifndef IXFSCTL_PATTERN_H
#define IXFSCTL_PATTERN_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// How a text agrees with a pattern.
struct Agreement {
    std::size_t fixed = 0;           // characters that agree with the pattern's own
    std::vector<std::string> values; // in the pattern's order; of a text in part, those it holds
    std::size_t first_value = 0;     // the place of the first of them
};

class Pattern
{
public:
    // `text` is of the log rows: %s, %d and %ld stand for values. Blanks at its front are ignored.
    explicit Pattern(std::string_view text);

    // Whether `text` is the whole pattern with values.
    std::optional<Agreement> match_whole(std::string_view text) const;

    // Whether `text` is the front of the pattern with values.
    std::optional<Agreement> match_front(std::string_view text) const;

    // Whether `text` is a part of the pattern with values, which may begin and end anywhere in it. The
    // agreement is the best there is.
    std::optional<Agreement> match_part(std::string_view text) const;

    // What the whole pattern begins with.
    std::string_view front() const { return pieces_.front().text; }

    // The pattern's text with values; "..." where a value is not known. `show` gets a number with the
    // text that stands before it, and returns it as it is to be shown.
    template <typename Show>
    std::string filled(const Agreement& agreement, Show show) const
    {
        std::string text;
        for (std::size_t i = 0; i < pieces_.size(); ++i) {
            text += pieces_[i].text;
            if (pieces_[i].value == Value::none)
                continue;
            const std::size_t at = i - agreement.first_value;
            const bool is_known = i >= agreement.first_value && at < agreement.values.size();
            if (!is_known)
                text += "...";
            else if (pieces_[i].value == Value::number)
                text += show(agreement.values[at], pieces_[i].text);
            else
                text += agreement.values[at];
        }
        return text;
    }

private:
    enum class Value { none, number, text };

    // A text between two values, and what stands for the value behind it.
    struct Piece {
        std::string text;
        Value value;
    };

    bool match_from(std::size_t piece, std::size_t offset, std::string_view text, bool may_end,
                    Agreement& agreement) const;
    bool match_value(std::size_t piece, std::string_view text, bool may_end,
                     Agreement& agreement) const;

    std::vector<Piece> pieces_; // the last one has no value
};

#endif
