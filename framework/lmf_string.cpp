#include "lmf_string.h"

namespace
{

std::string bytes_of(char const* text, unsigned long length)
{
    if (text == nullptr)
        return {};
    return length == LmfString::to_nul ? std::string(text) : std::string(text, length);
}

} // namespace

LmfString::LmfString() : code_page_(StringConverter::getDefaultNarrowCodePage(false)) {}

LmfString::LmfString(char const* text, unsigned long length, CodePageDef* code_page,
                     SecurityOptions /*options*/)
    : text_(bytes_of(text, length)),
      code_page_(code_page != nullptr ? code_page
                                      : StringConverter::getDefaultNarrowCodePage(false))
{
}

LmfString::~LmfString() = default;

LmfString& LmfString::operator=(char const* text)
{
    text_ = bytes_of(text, to_nul);
    return *this;
}

LmfString& LmfString::operator=(std::string const& text)
{
    text_ = text;
    return *this;
}

bool operator<(LmfString const& left, LmfString const& right)
{
    return left.text() < right.text(); // char_traits compares chars as unsigned bytes
}
