#include "pattern.h"

#include "begins_with.h"

#include <algorithm>

namespace
{

// 0 where the text does not begin with a decimal number.
std::size_t length_of_number(std::string_view text)
{
    const std::size_t sign = begins_with(text, "-") ? 1 : 0;
    const std::size_t end = std::min(text.find_first_not_of("0123456789", sign), text.size());
    return end > sign ? end : 0;
}

} // namespace

Pattern::Pattern(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%')) {
        const Value value = begins_with(text.substr(at), "%s") ? Value::text : Value::number;
        const std::size_t length = begins_with(text.substr(at), "%ld") ? 3 : 2;
        pieces_.push_back({std::string(text.substr(0, at)), value});
        text.remove_prefix(at + length);
    }
    pieces_.push_back({std::string(text), Value::none});
}

std::optional<Agreement> Pattern::match_whole(std::string_view text) const
{
    Agreement agreement;
    return match_from(0, 0, text, false, agreement) ? std::optional<Agreement>(agreement)
                                                    : std::nullopt;
}

std::optional<Agreement> Pattern::match_front(std::string_view text) const
{
    Agreement agreement;
    return match_from(0, 0, text, true, agreement) ? std::optional<Agreement>(agreement)
                                                   : std::nullopt;
}

std::optional<Agreement> Pattern::match_part(std::string_view text) const
{
    std::optional<Agreement> best;
    for (std::size_t piece = 0; piece < pieces_.size(); ++piece) {
        for (std::size_t offset = 0; offset < pieces_[piece].text.size(); ++offset) {
            Agreement agreement;
            agreement.first_value = piece;
            if (match_from(piece, offset, text, true, agreement) &&
                (!best || agreement.fixed > best->fixed))
                best = agreement;
        }
    }
    return best;
}

// `agreement` is complete only where this is true.
bool Pattern::match_from(std::size_t piece, std::size_t offset, std::string_view text, bool may_end,
                         Agreement& agreement) const
{
    const std::string_view own = std::string_view(pieces_[piece].text).substr(offset);
    if (may_end && begins_with(own, text)) {
        agreement.fixed += text.size();
        return true;
    }
    if (!begins_with(text, own))
        return false;
    text.remove_prefix(own.size());
    agreement.fixed += own.size();
    if (pieces_[piece].value == Value::none)
        return text.empty();
    return match_value(piece, text, may_end, agreement);
}

bool Pattern::match_value(std::size_t piece, std::string_view text, bool may_end,
                          Agreement& agreement) const
{
    const Agreement before = agreement;
    const auto take = [&](std::size_t length) {
        agreement = before;
        agreement.values.emplace_back(text.substr(0, length));
        return match_from(piece + 1, 0, text.substr(length), may_end, agreement);
    };
    if (pieces_[piece].value == Value::number) {
        const std::size_t length = length_of_number(text);
        return length > 0 && take(length);
    }
    // The next text ends the value; nothing else can.
    const std::string& next = pieces_[piece + 1].text;
    const bool is_last = next.empty();
    for (std::size_t end = is_last ? text.size() : text.find(next); end != std::string_view::npos;
         end = is_last ? std::string_view::npos : text.find(next, end + 1)) {
        if (take(end))
            return true;
    }
    // A text in part may end in the value, or in what follows it.
    return may_end && take(text.size());
}
