// The public header of a tiny library, whose interface is changed by macros: see check_refusals.
#ifndef IXFS_TESTS_SPECIMEN_H
#define IXFS_TESTS_SPECIMEN_H

#include <stddef.h>

#define SPECIMEN_API __attribute__((visibility("default")))

class Hidden;

#ifdef MOVE_ENUMERATOR
enum Status { FINE = 0, BAD = 2, WORST = 3 };
#elif defined(REMOVE_ENUMERATOR)
enum Status { FINE = 0, WORST = 2 };
#elif defined(ADD_ENUMERATOR)
enum Status { FINE = 0, BAD = 1, WORST = 2, NEW = 3 };
#else
enum Status { FINE = 0, BAD = 1, WORST = 2 };
#endif

struct Record {
#ifdef SWAP_FIELDS
    int second;
    int first;
#else
    int first;
    int second;
#endif
#ifdef GROW_RECORD
    int third;
#endif
    Hidden* hidden;
};

// It carries its size: compare lets it grow at its end.
struct ixfs_prepare_request {
    size_t size;
#ifdef SWAP_IN_WHAT_MAY_GROW
    int timeout;
    int port;
#else
    int port;
    int timeout;
#endif
#ifdef GROW_IN_THE_MIDDLE
    long between;
#endif
    const char* server;
#ifdef GROW_AT_THE_END
    long at_the_end;
#endif
};

class SPECIMEN_API Base
{
public:
#ifdef NEW_VIRTUAL
    virtual int before() const;
#endif
    virtual int number() const;
    virtual ~Base();
    int inlined() const
    {
        return 1;
    }
#ifdef ADD_INLINE_MEMBER
    int also_inlined() const
    {
        return 2;
    }
#endif
};

extern "C" {
#ifdef CHANGE_PARAMETER
SPECIMEN_API Status specimen_use(const Record* record, int size);
#elif defined(CHANGE_RESULT)
SPECIMEN_API long specimen_use(const Record* record, long size);
#else
SPECIMEN_API Status specimen_use(const Record* record, long size);
#endif
SPECIMEN_API int specimen_prepare(const ixfs_prepare_request* request);
#ifndef REMOVE_FUNCTION
SPECIMEN_API int specimen_removed();
#endif
#if defined(ADD_FUNCTION) || defined(ADD_TO_RELEASED_VERSION)
SPECIMEN_API int specimen_added();
#endif
}

#endif
