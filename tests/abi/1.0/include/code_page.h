// Code page identities: which code page a string's bytes are in. No text is ever converted.
#ifndef LMF_CODE_PAGE_H
#define LMF_CODE_PAGE_H

// Marks what the library exports.
#if defined(__GNUC__)
#define LMF_API __attribute__((visibility("default")))
#else
#define LMF_API
#endif

// Opaque; its address is the code page's id. Lives as long as the process.
class CodePageDef;

// The process's registry of code pages. Any thread.
class LMF_API CodePageMgr
{
public:
    // Returns the code page called `name`: "UTF8" for UTF-8, "" for the default narrow one, which
    // is that of the process's locale at the time. In a UTF-8 locale the two are the same. Every
    // other name, and null, gets the default. Never null.
    CodePageDef* getCodePageId(const char* name);
};

// Returns the registry. Any thread.
LMF_API CodePageMgr& getCodePageMgr();

// The two code pages in use. Each is looked up when it is first needed. Any thread.
class LMF_API StringConverter
{
public:
    // Returns the default narrow code page. The library looks it up when it is loaded, in the
    // locale of that time; a later setlocale does not change it. With `cached_only` it is not
    // looked up, and the result is null if nobody has needed it yet.
    static CodePageDef* getDefaultNarrowCodePage(bool cached_only);

    // Returns UTF-8.
    static CodePageDef* getUtf8CodePage();

    // The caches, null until needed. Use the functions above to read them; any thread may.
    static CodePageDef* s_defaultNarrowCodePageId;
    static CodePageDef* s_utf8CodePageId;
};

#endif
