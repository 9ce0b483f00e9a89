// vxu_com_system: a command through "/bin/sh -c" in a child of our own, with
// every signal held off in the calling thread until the child is reaped.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vxutil/process.h>

#include "common/coverage_flush.hpp"
#include "process/blocked_signals.hpp"
#include "process/child_descriptors.hpp"
#include "process/command_size.hpp"

namespace {

__attribute__((format(printf, 1, 0), noreturn)) void
run_shell_in_child(const char *fmt, va_list ap, const vxu::process::all_signals_blocked &signals)
{
    char command[vxu::process::kCommandSize];
    (void)vsnprintf(command, sizeof command, fmt, ap);  // cut when longer
    vxu::process::reset_child_descriptors();
    signals.restore_in_child();
    vxu::flush_coverage_counters();
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    // exit, not _exit: what the child inherited to flush and run at exit
    // belongs to it now.
    exit(-1);  // NOLINT(concurrency-mt-unsafe): the forked child has one thread
}

__attribute__((format(printf, 1, 0))) int run_shell(const char *fmt, va_list ap)
{
    const vxu::process::all_signals_blocked signals;
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0)
        run_shell_in_child(fmt, ap, signals);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -2;
    }
    return 0;
}

}  // namespace

extern "C" {

VXU_API int vxu_com_system(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = run_shell(fmt, ap);
    va_end(ap);
    return rc;
}

}  // extern "C"
