/*
 * Test helper program: records how it was started (arguments, open
 * descriptors, session, parent, signal mask) into the file named by
 * VXU_PROBE_RECORD, then ends, or waits for a signal when VXU_PROBE_WAIT is
 * set. The record appears whole: it is written aside and renamed.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static char record[65536];
static size_t used;

static void add(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(record + used, sizeof record - used, fmt, ap);
    va_end(ap);
    if (n > 0 && (size_t)n < sizeof record - used)
        used += (size_t)n;
}

static void add_descriptors(void)
{
    DIR *dir = opendir("/proc/self/fd");
    struct dirent *e;
    if (!dir)
        return;
    while ((e = readdir(dir)) != NULL) {
        char path[64], target[256];
        int fd = atoi(e->d_name);
        ssize_t n;
        if (e->d_name[0] == '.' || fd == dirfd(dir))
            continue;
        snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
        n = readlink(path, target, sizeof target - 1);
        target[n < 0 ? 0 : n] = '\0';
        add("fd %d %s\n", fd, target);
    }
    closedir(dir);
}

int main(int argc, char **argv)
{
    const char *out = getenv("VXU_PROBE_RECORD");
    char tmp[4096];
    sigset_t mask;
    FILE *f;
    int i;

    add_descriptors(); /* before this program opens anything itself */
    sigprocmask(SIG_BLOCK, NULL, &mask);
    for (i = 1; i <= SIGRTMAX; i++) {
        if (sigismember(&mask, i) == 1)
            add("blocked %d\n", i);
    }
    add("pid %d\nppid %d\nsid %d\n", (int)getpid(), (int)getppid(), (int)getsid(0));
    for (i = 0; i < argc; i++)
        add("arg %s\n", argv[i]);
    if (!out)
        return 2;
    snprintf(tmp, sizeof tmp, "%s.tmp", out);
    f = fopen(tmp, "w");
    if (!f)
        return 3;
    fwrite(record, 1, used, f);
    if (fclose(f) != 0 || rename(tmp, out) != 0)
        return 4;
    if (getenv("VXU_PROBE_WAIT")) {
        for (;;)
            pause();
    }
    return 0;
}
