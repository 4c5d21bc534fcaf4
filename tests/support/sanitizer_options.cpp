// What the sanitizers are to pass over in a test program. Without them these are never called.

extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_suppressions();

// A mount's stop event stays when the mount is gone, on purpose. And what ACE keeps for a thread
// stays in a fork that does not have the thread.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:make_stop_event\n"
           "leak:ACE_Log_Msg::instance\n";
}

extern "C" const char* __lsan_default_options()
{
    return "print_suppressions=0";
}

// ACE destroys its own locks at the end of the process. The last to have held one may be a
// validation thread on its way out, which nobody joins.
extern "C" const char* __tsan_default_suppressions()
{
    return "race:ACE_OS::mutex_destroy\n";
}

// A test forks with threads and mounts in the child, which starts a thread there.
extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0";
}
