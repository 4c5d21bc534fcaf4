#include "code_page.h"

#include <string_view>

class CodePageDef
{
};

namespace
{

CodePageDef default_narrow;
CodePageDef utf8;

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
    return name != nullptr && std::string_view(name) == "UTF8" ? &utf8 : &default_narrow;
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
