/* A mount helper that notices when it runs while another one does, and that a test can hold up.
 *
 * Uses these files of /usr/varnis/var/exclusive:
 *
 *   running   locked for as long as a run lasts
 *   overlaps  a line from each run that found it locked
 *   runs      a line from each run: what it was asked for
 *   hold      taken away by the one run that it holds up
 *   duration  the least milliseconds that a run lasts
 *   gate      a FIFO. The held run waits here for a line, its exit status.
 *
 * Mounts nothing. Reports the directory that it was given as the mount point.
 */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

static const unsigned int longest_run = 300; /* seconds, should the test be gone */

static void note(const char* file, const char* text)
{
    char line[64];
    const int length = snprintf(line, sizeof(line), "%s\n", text);
    const int notes = open(file, O_CREAT | O_WRONLY | O_APPEND, 0600);
    if (notes == -1 || write(notes, line, (size_t)length) != length)
        exit(1);
    close(notes);
}

static int held_exit_status(void)
{
    char line[16] = "";
    FILE* const gate = fopen("gate", "r");
    if (gate == NULL || fgets(line, sizeof(line), gate) == NULL)
        exit(1);
    fclose(gate);
    return atoi(line);
}

static void take_time(void)
{
    /* Two runs that nothing keeps apart are to meet, not to pass each other unseen. */
    struct timespec length = {0, 200 * 1000};
    FILE* const duration = fopen("duration", "re");
    char line[16] = "";
    if (duration != NULL && fgets(line, sizeof(line), duration) != NULL)
        length.tv_nsec = atol(line) % 1000 * 1000 * 1000;
    if (duration != NULL)
        fclose(duration);
    nanosleep(&length, NULL);
}

int main(int count, char** arguments)
{
    if (count < 3 || chdir("/usr/varnis/var/exclusive") != 0)
        return 2;
    alarm(longest_run);
    const int running = open("running", O_CREAT | O_RDWR, 0600);
    if (flock(running, LOCK_EX | LOCK_NB) != 0)
        note("overlaps", arguments[1]);
    note("runs", arguments[1]);

    take_time();
    const int exit_status = unlink("hold") == 0 ? held_exit_status() : 0;
    if (strcmp(arguments[1], "mount") == 0 && exit_status == 0)
        printf("MOUNTPOINT=%s\n", arguments[count - 1]);
    printf("EXIT_STATUS=%d\n", exit_status);
    return 0;
}
