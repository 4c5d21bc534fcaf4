#include "empty_prepare.h"

#include "helper_turn.h"

#include <pthread.h>
#include <semaphore.h>
#include <stddef.h>

static void* wait_for_the_end(void* end)
{
    while (sem_wait(end) != 0) /* a signal has interrupted it */
        continue;
    return NULL;
}

/* Runs the unmount command while a thread waits. */
static int watched_unmount(int semaphore, const char* command)
{
    sem_t end;
    pthread_t thread;
    int result = -1;
    sem_init(&end, 0, 0);
    if (pthread_create(&thread, NULL, wait_for_the_end, &end) == 0) {
        result = floor_helper_turn(semaphore, command, NULL);
        sem_post(&end);
        pthread_join(thread, NULL);
    }
    sem_destroy(&end);
    return result;
}

int floor_empty_prepare(const char* mount_command, const char* unmount_command)
{
    const int semaphore = floor_semaphore();
    int result = -1;
    if (semaphore == -1)
        return -1;
    if (floor_helper_turn(semaphore, mount_command, NULL) == 0)
        result = watched_unmount(semaphore, unmount_command);
    floor_delete_semaphore(semaphore);
    return result;
}
