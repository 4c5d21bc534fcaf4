// A process locale that writes 1234 as "1,234", for as long as the object lives: what the library
// writes and reads must not follow it.
#ifndef IXFS_TESTS_GROUPING_LOCALE_H
#define IXFS_TESTS_GROUPING_LOCALE_H

#include <locale>
#include <string>

class GroupingLocale
{
public:
    GroupingLocale()
        : before_(std::locale::global(std::locale(std::locale::classic(), new Grouping)))
    {
    }
    ~GroupingLocale() { std::locale::global(before_); }
    GroupingLocale(const GroupingLocale&) = delete;
    GroupingLocale& operator=(const GroupingLocale&) = delete;

private:
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale before_;
};

#endif
