/* Uses the library through dlopen, and closes it while its validation thread waits inside:
 *
 *     dlopen_caller LIBRARY SERVER
 */
#include <ixfs.h>

#include <dlfcn.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static struct {
    __typeof__(&ixfs_init) init;
    __typeof__(&ixfs_mount) mount;
    __typeof__(&ixfs_unmount) unmount;
    __typeof__(&ixfs_term) term;
} ixfs;

static sem_t validation_started, validation_stopped;

static void expect(int condition, const char* what)
{
    if (condition)
        return;
    fprintf(stderr, "dlopen_caller: failed: %s\n", what);
    exit(1);
}

static void load(void* library, const char* name, void* function)
{
    void* const symbol = dlsym(library, name);
    expect(symbol != NULL, name);
    memcpy(function, &symbol, sizeof symbol);
}

static void* open_library(const char* path)
{
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    expect(library != NULL, "dlopen");
    load(library, "ixfs_init", &ixfs.init);
    load(library, "ixfs_mount", &ixfs.mount);
    load(library, "ixfs_unmount", &ixfs.unmount);
    load(library, "ixfs_term", &ixfs.term);
    return library;
}

static void watch_validation(int severity, const char* tag, const char* message)
{
    (void)severity;
    (void)tag;
    if (strcmp(message, "INF - starting validate thread\n") == 0)
        sem_post(&validation_started);
    if (strncmp(message, "INF - stopping validate thread", 30) == 0)
        sem_post(&validation_stopped);
}

int main(int argc, char* argv[])
{
    expect(argc == 3, "usage: dlopen_caller LIBRARY SERVER");
    sem_init(&validation_started, 0, 0);
    sem_init(&validation_stopped, 0, 0);

    void* const library = open_library(argv[1]);
    _ixfs_control_t* const handle = ixfs.init(0, NULL, watch_validation, NULL, NULL);
    expect(handle != NULL, "init");
    expect(ixfs.mount(handle, "cred", "cred", 4010, argv[2], 0, NULL) != NULL, "mount");
    sem_wait(&validation_started);

    expect(dlclose(library) == 0, "dlclose");
    expect(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != NULL, "library stays loaded");

    open_library(argv[1]);
    expect(ixfs.unmount(handle) == EC_OK, "unmount");
    sem_wait(&validation_stopped); /* the thread went on in the library's code */
    ixfs.term(handle);
    return 0;
}
