#include "log_digest.h"

#include <algorithm>

void LogDigest::add(const std::string& line)
{
    std::vector<LineMatch> matches = find_rows_of_whole_line(line);
    const StatusRow* const status = matches.empty() ? find_status_in(line) : nullptr;
    known_ += !matches.empty() || status != nullptr;
    if (status != nullptr && std::count(statuses_.begin(), statuses_.end(), status) == 0)
        statuses_.push_back(status);
    if (matches.empty())
        return;
    if (tells_of_problem(*matches.front().row))
        note(matches);
    last_ = std::move(matches);
}

void LogDigest::note(const std::vector<LineMatch>& matches)
{
    for (Finding& finding : findings_) {
        if (finding.matches.front().row == matches.front().row) {
            ++finding.count;
            return;
        }
    }
    findings_.push_back({matches, 1});
}

std::string LogDigest::text() const
{
    std::string text;
    const auto append = [&text](const std::string& explanation) {
        text += (text.empty() ? "" : "\n") + explanation;
    };
    for (const Finding& finding : findings_)
        append(explain(finding.matches, finding.count));
    if (!last_.empty() && tells_of_waiting(*last_.front().row))
        append("The log ends here:\n" + explain(last_));
    for (const StatusRow* const status : statuses_)
        append(explain(*status));
    if (text.empty())
        text = std::to_string(known_) + (known_ == 1 ? " line" : " lines") +
               " of the library; nothing to do\n";
    return text;
}
