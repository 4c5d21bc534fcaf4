#include "specimen.h"

class Hidden
{
#ifdef CHANGE_HIDDEN
    long more[2] = {};
#endif
    int state = 0;

public:
    int get() const
    {
        return state;
    }
};

#ifdef NEW_VIRTUAL
int Base::before() const
{
    return 0;
}
#endif
int Base::number() const
{
    return inlined();
}
Base::~Base() = default;

#ifdef CHANGE_PARAMETER
Status specimen_use(const Record* record, int)
#elif defined(CHANGE_RESULT)
long specimen_use(const Record* record, long)
#else
Status specimen_use(const Record* record, long)
#endif
{
    return record->hidden->get() == 0 ? FINE : WORST;
}
int specimen_prepare(const ixfs_prepare_request* request)
{
    return request->server == nullptr ? 1 : 0;
}
#ifndef REMOVE_FUNCTION
int specimen_removed()
{
    return 1;
}
#endif
#if defined(ADD_FUNCTION) || defined(ADD_TO_RELEASED_VERSION)
int specimen_added()
{
    return 1;
}
#endif
