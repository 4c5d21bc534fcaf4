#include "lmf_string.h"

namespace
{

std::string bytes_of(const char* text, unsigned long length)
{
    if (text == nullptr)
        return {};
    return length == LmfString::to_nul ? std::string(text) : std::string(text, length);
}

} // namespace

LmfString::LmfString() : code_page_(StringConverter::getDefaultNarrowCodePage(false)) {}

LmfString::LmfString(const char* text, unsigned long length, CodePageDef* code_page,
                     SecurityOptions /*options*/)
    : text_(bytes_of(text, length)),
      code_page_(code_page != nullptr ? code_page
                                      : StringConverter::getDefaultNarrowCodePage(false))
{
}

LmfString::~LmfString() = default;

LmfString& LmfString::operator=(const char* text)
{
    text_ = bytes_of(text, to_nul);
    return *this;
}

LmfString& LmfString::operator=(const std::string& text)
{
    text_ = text;
    return *this;
}

bool operator<(const LmfString& left, const LmfString& right)
{
    return left.text() < right.text(); // char_traits compares chars as unsigned bytes
}
