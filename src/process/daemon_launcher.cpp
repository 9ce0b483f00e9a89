// vxu_com_start_daemon: the program runs in a grandchild in a session of its
// own; the intermediate child reports the grandchild's id through a pipe
// and ends, so the caller is never the daemon's parent.
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vxutil/process.h>

#include "common/coverage_flush.hpp"
#include "common/unique_fd.hpp"
#include "process/blocked_signals.hpp"
#include "process/child_descriptors.hpp"
#include "process/command_size.hpp"

namespace {

constexpr int kArgvSize = 30;  // 29 words and the terminating null entry
constexpr size_t kPidTextSize = 32;
constexpr int kNotExecuted = 255;

[[noreturn]] void end_child(int status)
{
    vxu::flush_coverage_counters();
    _exit(status);
}

const char *base_name(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// Splits the command line in place at blanks and tabs into argv; returns
// the program path (the first word), or null when there is no word.
char *split_words(char *line, char *argv[kArgvSize])
{
    char *save = nullptr;
    char *path = strtok_r(line, " \t", &save);
    if (!path)
        return nullptr;
    argv[0] = const_cast<char *>(base_name(path));
    for (int i = 1; i < kArgvSize - 1; ++i) {
        argv[i] = strtok_r(nullptr, " \t", &save);
        if (!argv[i])
            break;
    }
    return path;
}

// Standard descriptors on /dev/null, whatever they were inherited as.
void attach_to_dev_null()
{
    const int null_fd = open("/dev/null", O_RDWR);
    if (null_fd < 0)
        return;
    dup2(null_fd, 1);
    dup2(null_fd, 2);
    dup2(null_fd, 0);
    if (null_fd > 2)
        close(null_fd);
}

__attribute__((format(printf, 1, 0), noreturn)) void
become_daemon(const char *fmt, va_list ap, const vxu::process::all_signals_blocked &signals)
{
    char *argv[kArgvSize] = {};
    vxu::process::reset_child_descriptors();
    char line[vxu::process::kCommandSize];
    (void)vsnprintf(line, sizeof line, fmt, ap);  // cut when longer
    char *path = split_words(line, argv);
    if (!path)
        end_child(kNotExecuted);
    attach_to_dev_null();
    setsid();
    signals.restore_in_child();
    vxu::flush_coverage_counters();
    execv(path, argv);
    end_child(kNotExecuted);
}

// The intermediate child: forks the daemon, reports its id (or -1) as
// decimal text and ends.
__attribute__((format(printf, 3, 0), noreturn)) void
launch_and_report(int report_fd, int unused_fd, const char *fmt, va_list ap,
                  const vxu::process::all_signals_blocked &signals)
{
    const pid_t daemon = fork();
    if (daemon == 0)
        become_daemon(fmt, ap, signals);
    char text[kPidTextSize];
    const int len = snprintf(text, sizeof text, "%d", static_cast<int>(daemon));
    close(unused_fd);
    // A failed write needs no handling: the launcher then reads end-of-file.
    const ssize_t written = write(report_fd, text, static_cast<size_t>(len));
    (void)written;
    close(report_fd);
    end_child(0);
}

// Reads the intermediate child's report: the daemon's id, or -1 when the
// report failed or never came.
int read_report(int fd)
{
    char text[kPidTextSize] = {};
    ssize_t n;
    do {
        n = read(fd, text, sizeof text - 1);
    } while (n < 0 && errno == EINTR);
    if (n <= 0)
        return -1;
    return static_cast<int>(strtol(text, nullptr, 10));
}

__attribute__((format(printf, 2, 0))) int start_daemon(int *pid, const char *fmt, va_list ap)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -2;
    vxu::unique_fd read_end(ends[0]);
    vxu::unique_fd write_end(ends[1]);
    const vxu::process::all_signals_blocked signals;
    const pid_t child = fork();
    // Both pipe ends are closed before the saved mask comes back.
    if (child < 0) {
        read_end.reset();
        write_end.reset();
        return -3;
    }
    if (child == 0)
        launch_and_report(write_end.get(), read_end.get(), fmt, ap, signals);
    // Holding our write end would turn a lost report into a read that never
    // ends.
    write_end.reset();
    const int reported = read_report(read_end.get());
    if (pid)
        *pid = reported;
    read_end.reset();
    return 0;
}

}  // namespace

extern "C" {

VXU_API int vxu_com_start_daemon(int *pid, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = start_daemon(pid, fmt, ap);
    va_end(ap);
    return rc;
}

}  // extern "C"
