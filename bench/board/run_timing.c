/* Times whole runs of programs inside a root directory on the emulated
 * board: each program in turn, round after round, so that a drifting
 * emulation slows them alike; each run from fork to reaping, standard
 * error to /dev/null. Prints, per program, the median in microseconds and
 * the exit status of its runs (-1 when they differed or a signal ended
 * one), each line tagged "@@timing" for the host.
 *
 *   run_timing ROOT RUNS PROGRAM...   (PROGRAM: a path inside ROOT) */

#define _GNU_SOURCE

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { kMaxPrograms = 8 };

static double now_us(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1e6 + t.tv_nsec / 1e3;
}

/* The run's exit status, or -1 after a signal. */
static int run(const char* program, double* elapsed_us)
{
    const double started = now_us();
    *elapsed_us = 0;
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
        char* argv[] = {(char*)program, NULL};
        char* envp[] = {"PATH=/bin", NULL};
        execve(program, argv, envp);
        _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        return -1;
    *elapsed_us = now_us() - started;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static int by_value(const void* a, const void* b)
{
    const double x = *(const double*)a, y = *(const double*)b;
    return (x > y) - (x < y);
}

int main(int argc, char** argv)
{
    const int runs = argc > 2 ? atoi(argv[2]) : 0;
    const int programs = argc - 3;
    if (runs <= 0 || programs <= 0 || programs > kMaxPrograms) {
        fprintf(stderr, "usage: %s ROOT RUNS PROGRAM...\n", argv[0]);
        return 2;
    }
    if (chroot(argv[1]) != 0 || chdir("/") != 0) {
        perror(argv[1]);
        return 2;
    }
    double* times[kMaxPrograms];
    int statuses[kMaxPrograms];
    for (int p = 0; p < programs; ++p) {
        times[p] = malloc(sizeof(double) * (size_t)runs);
        if (times[p] == NULL)
            return 2;
        statuses[p] = -2;
    }
    for (int round = 0; round < runs; ++round) {
        for (int turn = 0; turn < programs; ++turn) {
            const int p = (round + turn) % programs;
            const int status = run(argv[3 + p], &times[p][round]);
            statuses[p] = statuses[p] == -2 || statuses[p] == status ? status : -1;
        }
    }
    for (int p = 0; p < programs; ++p) {
        qsort(times[p], (size_t)runs, sizeof(double), by_value);
        printf("@@timing %s %.0f %d\n", argv[3 + p], times[p][runs / 2], statuses[p]);
    }
    return 0;
}
