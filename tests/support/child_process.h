// Other processes that use the library.
#ifndef IXFS_TESTS_CHILD_PROCESS_H
#define IXFS_TESTS_CHILD_PROCESS_H

#include <functional>

#include <sys/types.h>

// For a forked child: valgrind looks for no leaks in it. The parent's threads are not there, and what
// only they point to would count as lost.
void look_for_no_leaks();

// A fork of the test process that runs a function of the test and then ends, without the test
// program's own clean-up. Start one from a process without threads. Is killed, if it still runs,
// with its object or with the test process.
class ChildProcess
{
public:
    // The child's end of the line to its parent.
    class Parent
    {
    public:
        // Tells the parent that the child has come this far, and waits until it may go on.
        void pause();

    private:
        friend ChildProcess;
        explicit Parent(int line) : line_(line) {}

        int line_;
    };

    // Returns the child's exit status. Expectations of GoogleTest count for nothing in it.
    using Body = std::function<int(Parent&)>;

    // errors  descriptor of the file that is the child's standard error
    ChildProcess(int errors, const Body& body);
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;

    void wait_for_pause();
    void go_on();

    void send(int signal);
    void kill();

    // Whether it has ended, without waiting for it.
    bool has_ended() const;

    // Waits for the child's end. Returns its exit status, or the signal that ended it, negated.
    int wait();

private:
    static constexpr pid_t none = -1;

    pid_t process_;
    int line_;
};

#endif
