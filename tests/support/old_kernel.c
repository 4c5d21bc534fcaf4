/* Runs a command as on a kernel that lacks newer system calls: openat2 (Linux 5.6), faccessat2
 * (5.8) and statx (4.11, and with mount attributes 5.8) answer ENOSYS in it and in all that it
 * starts; or, with --sandbox first, EPERM, as in a sandbox that is older than the calls. */
#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#define LOAD(field)                                                                                \
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, (unsigned int)offsetof(struct seccomp_data, field))
#define SKIP_UNLESS(value, skipped) BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (value), 0, (skipped))
#define SKIP_IF(value, skipped) BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (value), (skipped), 0)
#define ANSWER(action) BPF_STMT(BPF_RET | BPF_K, (action))

/* The distance of a jump is the number of instructions between it and where it leads. */
static struct sock_filter instructions[] = {
    LOAD(arch),
    SKIP_UNLESS(AUDIT_ARCH_X86_64, 4),
    LOAD(nr),
    SKIP_IF(SYS_openat2, 3),
    SKIP_IF(SYS_faccessat2, 2),
    SKIP_IF(SYS_statx, 1),
    ANSWER(SECCOMP_RET_ALLOW),
    ANSWER(SECCOMP_RET_ERRNO), /* with the error number, see install() */
};

static int install(int error)
{
    const size_t last = sizeof(instructions) / sizeof(instructions[0]) - 1;
    instructions[last].k |= (unsigned int)error & SECCOMP_RET_DATA;
    const struct sock_fprog program = {sizeof(instructions) / sizeof(instructions[0]),
                                       instructions};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/* A filter that lets everything pass would make tests pass that say nothing. */
static int is_old(int error)
{
    return syscall(SYS_openat2, -1, "", NULL, 0UL) == -1 && errno == error;
}

int main(int argc, char** argv)
{
    const int in_sandbox = argc > 1 && strcmp(argv[1], "--sandbox") == 0;
    const int error = in_sandbox ? EPERM : ENOSYS;
    argv += in_sandbox;
    argc -= in_sandbox;
    if (argc < 2) {
        fputs("usage: ixfs-old-kernel [--sandbox] COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    if (!install(error) || !is_old(error)) {
        fprintf(stderr, "ixfs-old-kernel: cannot take the calls away: %s\n", strerror(errno));
        return 1;
    }
    execvp(argv[1], argv + 1);
    fprintf(stderr, "ixfs-old-kernel: %s: %s\n", argv[1], strerror(errno));
    return 1;
}
