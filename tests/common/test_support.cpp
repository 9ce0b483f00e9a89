#include "common/test_support.hpp"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));

namespace vxu_test {

int run_in_child(const std::function<void()> &body)
{
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        body();
        // LeakSanitizer stops the world through a cloned tracer, which a
        // seccomp filter (some tests install one) may refuse.
        if (__lsan_do_recoverable_leak_check) {
            const std::unique_ptr<FILE, int (*)(FILE *)> f(fopen("/proc/self/status", "re"),
                                                           fclose);
            const bool filtered =
                f && read_stream(f.get()).find("\nSeccomp:\t2") != std::string::npos;
            EXPECT_TRUE(filtered || __lsan_do_recoverable_leak_check() == 0)
                << "LeakSanitizer found leaks";
        }
        fflush(stdout);
        // Coverage builds run the exit handlers that save the counters.
        (VXU_TEST_COVERAGE ? exit : _exit)(::testing::Test::HasFailure());
    }
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)) < 0)
        return -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
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
    for (int c; (c = getc(stream)) != EOF;)
        text += static_cast<char>(c);
    return text;
}

int count_open_fds(pid_t pid)
{
    std::error_code error;
    const std::filesystem::directory_iterator fds(
        pid == 0 ? "/proc/self/fd" : "/proc/" + std::to_string(pid) + "/fd", error);
    // Our own count sees the iterator's descriptor.
    return error ? -1 : static_cast<int>(std::distance(fds, {})) - (pid == 0);
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
    for (int f : fd)
        if (f >= 0)
            close(f);
}

bool raise_fd_limit(rlim_t limit)
{
    struct rlimit rl = {0, 0};
    if (getrlimit(RLIMIT_NOFILE, &rl) != 0 || rl.rlim_cur >= limit)
        return rl.rlim_cur >= limit;
    rl.rlim_cur = limit;
    return limit <= rl.rlim_max && setrlimit(RLIMIT_NOFILE, &rl) == 0;
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
    // Filling a low limit is quick; the taken descriptors all sit below it.
    struct rlimit low = {saved_.rlim_cur < 256 ? saved_.rlim_cur : 256, saved_.rlim_max};
    if (under_valgrind() || setrlimit(RLIMIT_NOFILE, &low) != 0)
        return;
    while (take_one() >= 0) {
    }
    if (errno != EMFILE || static_cast<int>(taken_.size()) < free.count)
        return;
    for (int i = 0; i < free.count; ++i, taken_.pop_back())
        close(taken_.back());
    // Exactly count opens succeed now, and the next one fails.
    const size_t held = taken_.size();
    while (taken_.size() - held <= static_cast<size_t>(free.count) && take_one() >= 0) {
    }
    ok_ = taken_.size() - held == static_cast<size_t>(free.count);
    for (; taken_.size() > held; taken_.pop_back())
        close(taken_.back());
}

fds_taken::fds_taken(taken_below below)
{
    getrlimit(RLIMIT_NOFILE, &saved_);
    // With room above the chosen descriptor for what the test opens after it.
    if (under_valgrind() || !raise_fd_limit(static_cast<rlim_t>(below.fd) + 128))
        return;
    int fd;
    while ((fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0 && fd < below.fd)
        taken_.push_back(fd);
    ok_ = fd >= 0;
    if (ok_)
        close(fd);  // the first one at or above the chosen number
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
            taken.ok() ? body(what) : (void)printf("note: %s: refused here, not tested\n", what);
        });
    };
    under("no descriptor free", leaving_free{0});
    under("one descriptor free", leaving_free{1});
    under("every descriptor below 1024 taken", taken_below{1024});
    under("every descriptor below 1023 taken", taken_below{1023});
}

}  // namespace vxu_test
