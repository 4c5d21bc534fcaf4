/* A mount helper that mounts nothing: it names the folder /usr/varnis/var/bench/SERVER as the mount
 * point, and reports success. Takes the command lines that libixfs writes. With a number in the
 * environment's IXFS_BENCH_HELPER_MILLISECONDS it first sleeps for so long. */
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static const char* server_of(int count, char** arguments)
{
    for (int i = 2; i + 1 < count; ++i) {
        if (strcmp(arguments[i], "-server") == 0)
            return arguments[i + 1];
    }
    return "";
}

static void take_time(void)
{
    const char* const milliseconds = getenv("IXFS_BENCH_HELPER_MILLISECONDS");
    if (milliseconds == NULL)
        return;
    const long long nanoseconds = atoll(milliseconds) * 1000 * 1000;
    const struct timespec length = {nanoseconds / 1000000000, (long)(nanoseconds % 1000000000)};
    nanosleep(&length, NULL);
}

static char* put(char* end, const char* text)
{
    const size_t length = strlen(text);
    memcpy(end, text, length);
    return end + length;
}

int main(int count, char** arguments)
{
    char answer[512];
    char* end = answer;
    if (count < 3 || strlen(server_of(count, arguments)) > 255)
        return 2;
    take_time();
    if (strcmp(arguments[1], "mount") == 0) {
        end = put(end, "MOUNTPOINT=/usr/varnis/var/bench/");
        end = put(end, server_of(count, arguments));
        end = put(end, "\n");
    }
    end = put(end, "EXIT_STATUS=0\n");
    return write(STDOUT_FILENO, answer, (size_t)(end - answer)) == end - answer ? 0 : 1;
}
