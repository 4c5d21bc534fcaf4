// What is worth telling about the lines of a whole log.
#ifndef IXFSCTL_LOG_DIGEST_H
#define IXFSCTL_LOG_DIGEST_H

#include "explanation.h"

#include <string>
#include <vector>

// Takes lines one after the other, of which many may be another program's. Lines that are normal are
// only counted; of lines with the same text the first one is kept.
class LogDigest
{
public:
    void add(const std::string& line);

    // Whether any line was the library's, or told of a status.
    bool knows_any() const { return known_ > 0; }

    // The explanations in the order in which the lines came, with an empty line between them.
    std::string text() const;

private:
    struct Finding {
        std::vector<LineMatch> matches;
        int count;
    };

    void note(const std::vector<LineMatch>& matches);

    std::vector<Finding> findings_;
    std::vector<const StatusRow*> statuses_;
    std::vector<LineMatch> last_; // of the last line that was the library's
    int known_ = 0;
};

#endif
