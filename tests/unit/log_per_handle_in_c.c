#include "log_per_handle_in_c.h"

#include "log_per_handle.h"

ixfs_log_callback claim_log_in_c(line_writer write, void* context)
{
    return claim_log(write, context);
}

void give_back_log_in_c(ixfs_log_callback callback)
{
    give_back_log(callback);
}

int log_slot_count_in_c(void)
{
    return log_slot_count;
}
