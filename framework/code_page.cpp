#include "code_page.h"

#include <string_view>

#include <langinfo.h>

class CodePageDef
{
};

namespace
{

CodePageDef utf8;
CodePageDef not_utf8; // any that is not UTF-8; nobody needs to tell them apart

// Two threads may both find a cache empty, and then both fill it with the same page.
CodePageDef* cached(CodePageDef** cache)
{
    return __atomic_load_n(cache, __ATOMIC_ACQUIRE);
}

CodePageDef* cached(CodePageDef** cache, const char* name)
{
    CodePageDef* page = cached(cache);
    if (page == nullptr) {
        page = getCodePageMgr().getCodePageId(name);
        __atomic_store_n(cache, page, __ATOMIC_RELEASE);
    }
    return page;
}

} // namespace

CodePageDef* CodePageMgr::getCodePageId(const char* name)
{
    if (name != nullptr && std::string_view(name) == "UTF8")
        return &utf8;
    const std::string_view locales_code_page = nl_langinfo(CODESET);
    return locales_code_page == "UTF-8" ? &utf8 : &not_utf8;
}

CodePageMgr& getCodePageMgr()
{
    static CodePageMgr manager;
    return manager;
}

CodePageDef* StringConverter::s_defaultNarrowCodePageId = nullptr;
CodePageDef* StringConverter::s_utf8CodePageId = nullptr;

CodePageDef* StringConverter::getDefaultNarrowCodePage(bool cached_only)
{
    return cached_only ? cached(&s_defaultNarrowCodePageId)
                       : cached(&s_defaultNarrowCodePageId, "");
}

CodePageDef* StringConverter::getUtf8CodePage()
{
    return cached(&s_utf8CodePageId, "UTF8");
}
