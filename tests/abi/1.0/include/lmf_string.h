// A string that knows which code page its bytes are in.
#ifndef LMF_STRING_H
#define LMF_STRING_H

#include "code_page.h"

#include <string>

// Options of a string's construction. None are defined: pass 0.
using SecurityOptions = unsigned int;

// Text, and the code page of its bytes.
class LMF_API LmfString
{
public:
    // Pass this as the length to use all up to the NUL.
    static constexpr unsigned long to_nul = ~0UL;

    // Empty text in the default narrow code page.
    LmfString();

    // `length` bytes of `text` (they may hold NULs), or with `to_nul` all up to the NUL. A null
    // text is empty; a null code page is the default narrow one.
    LmfString(const char* text, unsigned long length, CodePageDef* code_page,
              SecurityOptions options);

    LmfString(const LmfString&) = default;
    LmfString(LmfString&&) = default;
    LmfString& operator=(const LmfString&) = default;
    LmfString& operator=(LmfString&&) = default;
    virtual ~LmfString();

    // Replace the text; the code page stays. A null text is empty.
    LmfString& operator=(const char* text);
    LmfString& operator=(const std::string& text);

    // The text.
    const std::string& text() const { return text_; }
    std::string& text() { return text_; }

    // The text's code page; never null.
    CodePageDef* code_page() const { return code_page_; }

    // The text, NUL-terminated; valid until the string changes. The bytes are not changed.
    const char* utf8_str() const { return text_.c_str(); }

private:
    std::string text_;
    CodePageDef* code_page_;
};

// Compares the texts byte by byte. A text that is the beginning of the other comes first. The code
// page does not matter.
LMF_API bool operator<(const LmfString& left, const LmfString& right);

#endif
