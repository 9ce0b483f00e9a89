#include "common/test_support.hpp"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>

extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));

namespace vxu_test {

namespace {

// Enough room above a chosen descriptor for what a test opens after it.
constexpr rlim_t kHeadroom = 128;
// Filling a low limit is quick; the taken descriptors all sit below it.
constexpr rlim_t kLowLimit = 256;

// True once a seccomp filter is installed (some tests refuse fork with one).
bool seccomp_filtered()
{
    FILE *status = fopen("/proc/self/status", "re");
    if (!status)
        return false;
    char line[256];
    int mode = 0;
    while (fgets(line, sizeof line, status) && sscanf(line, "Seccomp: %d", &mode) != 1) {
    }
    fclose(status);
    return mode == 2;
}

void expect_no_memory_leaks()
{
    // The check stops the world through a cloned tracer, which such a
    // filter may refuse.
    if (__lsan_do_recoverable_leak_check && !seccomp_filtered()) {
        EXPECT_EQ(0, __lsan_do_recoverable_leak_check()) << "LeakSanitizer found leaks";
    }
}

}  // namespace

int run_in_child(const std::function<void()> &body)
{
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        body();
        expect_no_memory_leaks();
        fflush(stdout);
        const int status = ::testing::Test::HasFailure() ? 1 : 0;
#ifdef VXU_TEST_COVERAGE
        exit(status);  // runs the coverage counters' exit handlers, which _exit skips
#else
        _exit(status);
#endif
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

void expect_child_passed(int status, const char *file, int line)
{
    if (status > 128)
        ADD_FAILURE_AT(file, line) << "the forked child died of signal " << status - 128;
    else if (status != 0)
        ADD_FAILURE_AT(file, line) << "the forked child failed (status " << status << ")";
}

std::string read_stream(FILE *stream)
{
    std::string text;
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, stream)) > 0)
        text.append(buf, n);
    return text;
}

int count_open_fds(pid_t pid)
{
    const std::string path = pid == 0 ? "/proc/self/fd" : "/proc/" + std::to_string(pid) + "/fd";
    DIR *dir = opendir(path.c_str());
    if (!dir)
        return -1;
    int n = 0;
    while (const dirent *d = readdir(dir)) {
        if (d->d_name[0] != '.')
            ++n;
    }
    closedir(dir);
    return pid == 0 ? n - 1 : n;  // our own count sees the directory stream's descriptor
}

const char *emulator()
{
    const char *name = getenv("VXU_TEST_EMULATOR");
    return name && *name ? name : nullptr;
}

bool under_valgrind()
{
    const char *flag = getenv("VXU_TEST_UNDER_VALGRIND");
    return flag && *flag && *flag != '0';
}

socket_pair::socket_pair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fd)); }

socket_pair::~socket_pair()
{
    for (int f : fd) {
        if (f >= 0)
            close(f);
    }
}

bool raise_fd_limit(rlim_t limit)
{
    struct rlimit rl;
    if (getrlimit(RLIMIT_NOFILE, &rl) != 0)
        return false;
    if (rl.rlim_cur >= limit)
        return true;
    if (limit > rl.rlim_max)
        return false;
    rl.rlim_cur = limit;
    return setrlimit(RLIMIT_NOFILE, &rl) == 0;
}

int fds_taken::take_one()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd >= 0)
        taken_.push_back(fd);
    return fd;
}

fds_taken::fds_taken(leaving_free free)
{
    getrlimit(RLIMIT_NOFILE, &saved_);
    if (under_valgrind())
        return;
    struct rlimit low = saved_;
    low.rlim_cur = std::min(saved_.rlim_cur, kLowLimit);
    if (setrlimit(RLIMIT_NOFILE, &low) != 0)
        return;
    while (take_one() >= 0) {
    }
    if (errno != EMFILE || static_cast<int>(taken_.size()) < free.count)
        return;
    for (int i = 0; i < free.count; ++i) {
        close(taken_.back());
        taken_.pop_back();
    }
    // Exactly count opens succeed now, and the next one fails.
    std::vector<int> probe;
    for (int fd; static_cast<int>(probe.size()) <= free.count &&
                 (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
        probe.push_back(fd);
    ok_ = static_cast<int>(probe.size()) == free.count;
    for (int fd : probe)
        close(fd);
}

fds_taken::fds_taken(taken_below below)
{
    getrlimit(RLIMIT_NOFILE, &saved_);
    if (under_valgrind())
        return;
    if (!raise_fd_limit(static_cast<rlim_t>(below.fd) + kHeadroom))
        return;
    int fd;
    while ((fd = take_one()) >= 0 && fd < below.fd) {
    }
    if (fd < 0)
        return;
    close(taken_.back());  // the first one at or above the chosen number
    taken_.pop_back();
    ok_ = true;
}

fds_taken::~fds_taken()
{
    for (int fd : taken_)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved_);
}

void for_each_pair_pressure(const std::function<void(const char *)> &body)
{
    SKIP_UNDER_VALGRIND(kDescriptorLimits);
    const auto under = [&body](const char *what, auto pressure) {
        SCOPED_TRACE(what);
        EXPECT_IN_CHILD([&] {
            const fds_taken taken(pressure);
            if (taken.ok())
                body(what);
            else
                printf("note: the machine refused %s; not tested\n", what);
        });
    };
    under("no descriptor free", leaving_free{0});
    under("one descriptor free", leaving_free{1});
    under("every descriptor below 1024 taken", taken_below{1024});
    under("every descriptor below 1023 taken", taken_below{1023});
}

}  // namespace vxu_test
