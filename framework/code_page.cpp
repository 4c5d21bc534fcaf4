#include "code_page.h"

#include <string_view>

class CodePageDef
{
};

namespace
{

CodePageDef default_narrow;
CodePageDef utf8;

CodePageDef* cached(std::atomic<CodePageDef*>& cache, const char* name)
{
    CodePageDef* page = cache.load();
    if (page == nullptr) {
        page = getCodePageMgr().getCodePageId(name);
        cache.store(page);
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

std::atomic<CodePageDef*> StringConverter::s_defaultNarrowCodePageId{nullptr};
std::atomic<CodePageDef*> StringConverter::s_utf8CodePageId{nullptr};

CodePageDef* StringConverter::getDefaultNarrowCodePage(bool cached_only)
{
    return cached_only ? s_defaultNarrowCodePageId.load() : cached(s_defaultNarrowCodePageId, "");
}

CodePageDef* StringConverter::getUtf8CodePage()
{
    return cached(s_utf8CodePageId, "UTF8");
}
