#include "common/test_support.hpp"

#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vxu_test {

int run_in_child(const std::function<void()> &body)
{
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        body();
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

int count_open_fds()
{
    DIR *dir = opendir("/proc/self/fd");
    if (!dir)
        return -1;
    int n = 0;
    while (const dirent *d = readdir(dir)) {
        if (d->d_name[0] != '.')
            ++n;
    }
    closedir(dir);
    return n - 1;  // the directory stream's own descriptor
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

}  // namespace vxu_test
