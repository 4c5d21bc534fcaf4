/* Does what docs/integration.md allows a caller, or warns of, and checks what comes of it:
 *
 *     caller_rules SERVER
 */
#include <ixfs.h>

#include <mntent.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

static const char* server;
static char mount_point[1024];
static int calls_of_system;

static void expect(int condition, const char* what)
{
    if (condition)
        return;
    fprintf(stderr, "caller_rules: failed: %s\n", what);
    _exit(1);
}

static int is_mounted(void)
{
    FILE* const table = setmntent("/proc/self/mounts", "r");
    expect(table != NULL, "mount table");
    int found = 0;
    for (const struct mntent* mount = getmntent(table); mount != NULL; mount = getmntent(table))
        found |= strcmp(mount->mnt_dir, mount_point) == 0;
    endmntent(table);
    return found;
}

static _ixfs_control_t* mounted(ixfs_log_callback log)
{
    _ixfs_control_t* const handle = ixfs_init(IXFS_FLAG_UNMOUNT_CRED, NULL, log, NULL, NULL);
    expect(handle != NULL && ixfs_mount(handle, "cred", "cred", 4010, server, 0, NULL) != NULL,
           "mount");
    expect(is_mounted(), "something is mounted");
    return handle;
}

static void unmount(_ixfs_control_t* handle)
{
    expect(ixfs_unmount(handle) == EC_OK && !is_mounted(), "unmount");
    ixfs_term(handle);
}

static void ignore_children(void)
{
    signal(SIGCHLD, SIG_IGN);
    unmount(mounted(NULL));
}

static void reap(int signal_number)
{
    (void)signal_number;
    while (waitpid(-1, NULL, WNOHANG) > 0)
        continue;
}

static void reap_all_children(void)
{
    signal(SIGCHLD, reap);
    unmount(mounted(NULL));
}

static void run_a_command(int severity, const char* tag, const char* message)
{
    (void)severity;
    (void)tag;
    if (strncmp(message, "INF - running command", 21) == 0 && system("exit 5") == 5 << 8)
        ++calls_of_system;
}

static void call_system_in_the_callback(void)
{
    unmount(mounted(run_a_command));
    expect(calls_of_system == 2, "system() in the callback");
}

static _ixfs_control_t* open_at_exit;

static void unmount_at_exit(void)
{
    unmount(open_at_exit);
}

static void unmount_in_atexit(void)
{
    open_at_exit = mounted(NULL);
    atexit(unmount_at_exit);
    exit(0);
}

static void exit_while_mounted(void)
{
    mounted(NULL);
    exit(0);
}

static sem_t validation_started;
static sigset_t mask_of_validation;

static void note_mask(int severity, const char* tag, const char* message)
{
    (void)severity;
    (void)tag;
    if (strcmp(message, "INF - starting validate thread\n") != 0)
        return;
    pthread_sigmask(SIG_BLOCK, NULL, &mask_of_validation);
    sem_post(&validation_started);
}

static void block_signals_around_the_mount(void)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, NULL);
    sem_init(&validation_started, 0, 0);
    _ixfs_control_t* const handle = mounted(note_mask);
    sigprocmask(SIG_UNBLOCK, &signals, NULL);
    sem_wait(&validation_started);
    expect(sigismember(&mask_of_validation, SIGUSR1) == 1, "the validation thread's mask");
    unmount(handle);
}

/* Returns the number of the attempt that got the lock. */
static int lock_view(void)
{
    char name[200];
    _ixfs_control_t* const handle = ixfs_init(0, NULL, NULL, NULL, NULL);
    _ixfs_view_t* const view = _ixfs_view_create(handle);
    expect(view != NULL && _ixfs_view_lock(handle, view, 7, name, sizeof name) == 1, "view lock");
    return name[strlen(name) - 1] - '0';
}

static void execute_with_a_view_lock(void)
{
    int to_program[2], from_program[2];
    expect(pipe(to_program) == 0 && pipe(from_program) == 0, "pipes");
    if (fork() == 0) {
        expect(lock_view() == 0, "first lock");
        dup2(to_program[0], STDIN_FILENO);
        dup2(from_program[1], STDOUT_FILENO);
        close(to_program[1]);
        execlp("cat", "cat", (char*)NULL);
        _exit(1);
    }
    char byte = 'x';
    expect(write(to_program[1], &byte, 1) == 1 && read(from_program[0], &byte, 1) == 1, "cat runs");
    expect(lock_view() == 1, "the program that was executed has the lock");
    close(to_program[1]);
    wait(NULL);
}

static const char* const helper = "/usr/varnis/stowline/bin/ixfs";
static const char* const real_helper = "/usr/varnis/stowline/bin/ixfs.real";

/* The helper reads standard input, writes to descriptor 9, and tells which signals it ignores. */
static void inherit(void)
{
    char script[300], seen[100] = "";
    expect(rename(helper, real_helper) == 0, "rename");
    FILE* const file = fopen(helper, "w");
    expect(file != NULL, "script");
    fprintf(file, "#!/bin/sh\nhead -c 5 >&9\ngrep SigIgn: /proc/self/status >&9\nexec %s \"$@\"\n",
            real_helper);
    fclose(file);
    snprintf(script, sizeof script, "chmod 755 %s", helper);
    expect(system(script) == 0, "chmod");

    int input[2], output[2];
    expect(pipe(input) == 0 && pipe(output) == 0, "pipes");
    expect(write(input[1], "mine\n", 5) == 5, "input");
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], 9);
    signal(SIGINT, SIG_IGN);
    _ixfs_control_t* const handle = mounted(NULL);
    close(output[1]);
    close(9);
    FILE* const told = fdopen(output[0], "r");
    unsigned long long ignored = 0;
    expect(told != NULL && fgets(seen, sizeof seen, told) != NULL, "the helper has descriptor 9");
    expect(strcmp(seen, "mine\n") == 0, "the helper reads the caller's standard input");
    expect(fscanf(told, "SigIgn: %llx", &ignored) == 1 && (ignored >> (SIGINT - 1) & 1) != 0,
           "the helper ignores what the caller ignores");
    expect(rename(real_helper, helper) == 0, "rename back");
    unmount(handle);
}

static void check(void (*rule)(void))
{
    const pid_t child = fork();
    if (child == 0) {
        rule();
        _exit(0);
    }
    int status;
    waitpid(child, &status, 0);
    expect(status == 0, "see above");
}

int main(int argc, char* argv[])
{
    expect(argc == 2, "usage: caller_rules SERVER");
    server = argv[1];
    snprintf(mount_point, sizeof mount_point, "/usr/varnis/var/ixfs/%s", server);
    check(ignore_children);
    check(reap_all_children);
    check(call_system_in_the_callback);
    check(block_signals_around_the_mount);
    check(execute_with_a_view_lock);
    check(inherit);
    check(unmount_in_atexit);
    expect(!is_mounted(), "unmounted at exit");
    check(exit_while_mounted);
    expect(is_mounted() && umount(mount_point) == 0, "exit unmounts nothing");
    return 0;
}
