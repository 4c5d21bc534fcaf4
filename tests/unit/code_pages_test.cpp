// Code pages in the locales that a process may have.
#include "code_page.h"
#include "lmf_string.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace
{

// A locale of the whole process, for as long as the object lives, with the caches of code pages as
// they are when the library was just loaded.
class ScopedLocale
{
public:
    explicit ScopedLocale(const char* name) : before_(std::setlocale(LC_ALL, nullptr))
    {
        EXPECT_NE(std::setlocale(LC_ALL, name), nullptr) << name;
    }
    ~ScopedLocale()
    {
        std::setlocale(LC_ALL, before_.c_str());
        StringConverter::s_defaultNarrowCodePageId = narrow_before_;
        StringConverter::s_utf8CodePageId = utf8_before_;
    }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    static CodePageDef* forget(CodePageDef*& cache)
    {
        CodePageDef* const page = cache;
        cache = nullptr;
        return page;
    }

    std::string before_;
    CodePageDef* narrow_before_ = forget(StringConverter::s_defaultNarrowCodePageId);
    CodePageDef* utf8_before_ = forget(StringConverter::s_utf8CodePageId);
};

CodePageDef* page(const char* name)
{
    return getCodePageMgr().getCodePageId(name);
}

TEST(CodePages, DefaultOfAUtf8LocaleIsUtf8)
{
    const ScopedLocale locale("C.UTF-8");
    EXPECT_NE(page("UTF8"), nullptr);
    EXPECT_EQ(page(""), page("UTF8"));
}

TEST(CodePages, StringsLookTheDefaultUpWhereNobodyHasYet)
{
    for (const bool is_empty : {true, false}) {
        const ScopedLocale locale("C");
        const LmfString text = is_empty ? LmfString() : LmfString("text", 4, nullptr, 0);
        EXPECT_EQ(text.code_page(), page(""));
    }
}

TEST(CodePages, DefaultOfTheCLocaleIsNotUtf8)
{
    const ScopedLocale locale("C");
    EXPECT_NE(page(""), nullptr);
    EXPECT_NE(page("UTF8"), nullptr);
    EXPECT_NE(page(""), page("UTF8"));
}

TEST(CodePages, Utf8IsTheSameInEveryLocale)
{
    const ScopedLocale utf8("C.UTF-8");
    CodePageDef* const found = page("UTF8");
    const ScopedLocale c("C");
    EXPECT_EQ(page("UTF8"), found);
}

TEST(CodePages, CachesOfAUtf8LocaleHoldOnePage)
{
    const ScopedLocale locale("C.UTF-8");
    EXPECT_EQ(StringConverter::getDefaultNarrowCodePage(false), StringConverter::getUtf8CodePage());
    EXPECT_EQ(StringConverter::s_defaultNarrowCodePageId, StringConverter::s_utf8CodePageId);
    EXPECT_EQ(LmfString().code_page(), StringConverter::getUtf8CodePage());
}

TEST(CodePages, DefaultThatIsCachedOutlivesItsLocale)
{
    const ScopedLocale locale("C.UTF-8");
    CodePageDef* const found = StringConverter::getDefaultNarrowCodePage(false);
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(StringConverter::getDefaultNarrowCodePage(false), found);
    EXPECT_EQ(found, StringConverter::getUtf8CodePage());
}

TEST(CodePages, TextGoesOutAsItCameInWhateverTheLocale)
{
    const std::string bytes = "\xc3\xbc \xfc \xff";
    for (const char* const name : {"C", "C.UTF-8"}) {
        const ScopedLocale locale(name);
        EXPECT_EQ(LmfString(bytes.data(), bytes.size(), page(""), 0).utf8_str(), bytes) << name;
    }
}

} // namespace
