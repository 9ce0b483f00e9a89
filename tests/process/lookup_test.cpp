#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <vxutil/process.h>

#include "process/process_test_util.hpp"

using namespace vxu_test;

namespace {

TEST(ProcessByPid, NameIsCaseInsensitivePrefixOfFirstArgumentsBaseName)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    running_probe netd({"/usr/sbin/vxunetd", "--flag"});
    fd_leak_check fds;
    for (const char *name : {"vxunetd", "VxuNetD", "vxunet", ""})
        EXPECT_EQ(0, vexmar_check_process_by_pid(netd.pid, name)) << name;
    for (const char *name : {"sbin", "/usr/sbin/vxunetd", "vxunetdx", "flag"})
        EXPECT_EQ(-1, vexmar_check_process_by_pid(netd.pid, name)) << name;
    EXPECT_EQ(-1, vexmar_check_process_by_pid(netd.pid, nullptr));

    running_probe script({"sh", "/etc/init.d/vxufoo"});
    EXPECT_EQ(-1, vexmar_check_process_by_pid(script.pid, "vxufoo"));
    EXPECT_EQ(0, vexmar_check_process_by_pid(script.pid, "sh"));

    running_probe long_name({std::string(300, 'x')});
    EXPECT_EQ(0, vexmar_check_process_by_pid(long_name.pid, std::string(255, 'x').c_str()));
    EXPECT_EQ(-1, vexmar_check_process_by_pid(long_name.pid, std::string(256, 'x').c_str()));

    EXPECT_EQ(-1, vexmar_check_process_by_pid(-1, ""));
    if (read_text("/proc/2/comm") == "kthreadd\n") {  // a kernel thread: empty command line
        EXPECT_EQ(-1, vexmar_check_process_by_pid(2, "kthreadd"));
        EXPECT_EQ(0, vexmar_check_process_by_pid(2, ""));
    }
}

TEST(ProcessByName, ScansAllProcesses)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    fd_leak_check fds;
    const std::string name = "vxuscan" + std::to_string(getpid());
    {
        running_probe probe({"/opt/bin/" + name + "d"});
        EXPECT_EQ(0, vexmar_check_process_by_name(("VXUSCAN" + std::to_string(getpid())).c_str()));
    }
    EXPECT_EQ(-1, vexmar_check_process_by_name(name.c_str()));
    EXPECT_EQ(-1, vexmar_check_process_by_name(nullptr));
}

TEST(PidFile, HoldsTheIdAsDecimalLine)
{
    fd_leak_check fds;
    temp_dir dir;
    const std::string file = dir.file("pid");
    EXPECT_EQ(0, vexmar_write_pid_file(file.c_str()));
    EXPECT_EQ(std::to_string(getpid()) + "\n", read_text(file));
    EXPECT_EQ(-1, vexmar_check_process_by_pid_file(file.c_str(), nullptr));
    for (const char *text : {"0\n", "abc\n", ""}) {
        write_text(file, text);
        EXPECT_EQ(-1, vexmar_check_process_by_pid_file(file.c_str(), "")) << text;
    }
    EXPECT_EQ(-1, vexmar_check_process_by_pid_file(dir.file("missing").c_str(), ""));
    EXPECT_EQ(-1, vexmar_check_process_by_pid_file(nullptr, ""));
    EXPECT_EQ(-1, vexmar_write_pid_file(dir.file("no/such/dir").c_str()));
    EXPECT_EQ(-1, vexmar_write_pid_file(nullptr));
}

TEST(PidFile, LeadsToTheProcessItNames)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    fd_leak_check fds;
    temp_dir dir;
    const std::string file = dir.file("pid");
    ASSERT_EQ(0, vexmar_write_pid_file(file.c_str()));
    EXPECT_EQ(0, vexmar_check_process_by_pid_file(file.c_str(), program_invocation_short_name));
    EXPECT_EQ(-1, vexmar_check_process_by_pid_file(file.c_str(), "vxu-other"));

    running_probe probe({"vxupidprobe"});
    write_text(file, "  " + std::to_string(probe.pid) + "abc\n");
    EXPECT_EQ(0, vexmar_check_process_by_pid_file(file.c_str(), "vxupid"));
}

TEST(SingleInstance, SecondInstanceWaitsUntilTheFirstReleases)
{
    temp_dir dir;
    const std::string lock = dir.file("lock");
    fd_leak_check fds;
    EXPECT_EQ(-2, vexmar_set_process_single_instance(nullptr));
    EXPECT_EQ(-1, vexmar_check_process_singal_instance(nullptr));
    EXPECT_EQ(-1, vexmar_set_process_single_instance(dir.file("no/dir").c_str()));
    EXPECT_EQ(0, vexmar_check_process_singal_instance(lock.c_str()));
    EXPECT_EQ("", read_text(lock)) << "the probe creates an empty lock file";

    const int held = vexmar_set_process_single_instance(lock.c_str());
    ASSERT_GE(held, 0);
    EXPECT_EQ(-1, vexmar_check_process_singal_instance(lock.c_str())) << "also in the holder";

    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const pid_t second = fork();
    if (second == 0) {
        const int fd = vexmar_set_process_single_instance(lock.c_str());
        _exit(fd >= 0 && write(ready[1], "x", 1) == 1 ? 0 : 1);
    }
    close(ready[1]);
    pollfd p = {ready[0], POLLIN, 0};
    EXPECT_EQ(0, poll(&p, 1, 300)) << "the second instance must wait";
    vexmar_release_process_single_instance(held);
    EXPECT_EQ(1, poll(&p, 1, 10000)) << "the second instance must get the lock";
    int status = -1;
    waitpid(second, &status, 0);
    EXPECT_EQ(0, status);
    close(ready[0]);
    EXPECT_EQ(0, vexmar_check_process_singal_instance(lock.c_str())) << "freed at exit";
}

TEST(SingleInstance, ReleaseIgnoresDescriptorsBelowOne)
{
    fd_leak_check fds;
    const int zero_before = fcntl(0, F_GETFD);
    vexmar_release_process_single_instance(0);
    vexmar_release_process_single_instance(-1);
    EXPECT_EQ(zero_before, fcntl(0, F_GETFD));
}

void on_alarm(int) {}

TEST(SingleInstance, InterruptedWaitGivesUpAndClosesTheLockFile)
{
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        const std::string lock = dir.file("lock");
        const int held = vexmar_set_process_single_instance(lock.c_str());
        ASSERT_GE(held, 0);
        struct sigaction sa = {};
        sa.sa_handler = on_alarm;  // without SA_RESTART the waiting flock fails with EINTR
        ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));
        struct itimerval it = {};
        it.it_value.tv_usec = 200000;
        {
            fd_leak_check fds;
            ASSERT_EQ(0, setitimer(ITIMER_REAL, &it, nullptr));
            EXPECT_EQ(-1, vexmar_set_process_single_instance(lock.c_str()));
            EXPECT_EQ(EINTR, errno);
        }
        vexmar_release_process_single_instance(held);
    });
}

// Each call that opens something, with descriptors free and then without.
TEST(ProcessInspection, CallsFailCleanlyWhenDescriptorsRunOut)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    SKIP_UNDER_VALGRIND(kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        const std::string pid_file = dir.file("pid"), lock = dir.file("lock");
        const char *self = program_invocation_short_name;
        ASSERT_EQ(0, vexmar_write_pid_file(pid_file.c_str()));
        const std::vector<std::pair<const char *, std::function<int()>>> calls = {
            {"by name", [&] { return vexmar_check_process_by_name(self); }},
            {"by pid", [&] { return vexmar_check_process_by_pid(getpid(), self); }},
            {"by pid file",
             [&] { return vexmar_check_process_by_pid_file(pid_file.c_str(), self); }},
            {"pid file", [&] { return vexmar_write_pid_file(pid_file.c_str()); }},
            {"lock probe", [&] { return vexmar_check_process_singal_instance(lock.c_str()); }},
            {"resident pages", [] { return vxu_com_mem_get_rss() > 0 ? 0 : -1; }},
        };
        for (const auto &[what, call] : calls)
            ASSERT_EQ(0, call()) << what << ", descriptors free";
        // One free descriptor is enough for all but the scan, which holds
        // /proc open while it reads each command line.
        for (int free : {0, 1}) {
            fds_taken pressure(leaving_free{free});
            ASSERT_TRUE(pressure.ok());
            for (const auto &[what, call] : calls) {
                const bool scan = std::string(what) == "by name";
                EXPECT_EQ(free == 0 || scan ? -1 : 0, call()) << what << ", " << free << " free";
            }
            if (free == 0) {
                EXPECT_EQ(-1, vexmar_set_process_single_instance(dir.file("new.lock").c_str()));
            }
        }
        EXPECT_FALSE(exists(dir.file("new.lock"))) << "refused before anything was created";
    });
}

TEST(SelfStats, ResidentPagesAndThreadId)
{
    const long page = sysconf(_SC_PAGESIZE);
    const int before = vxu_com_mem_get_rss();
    ASSERT_GT(before, 0);
    const size_t bytes = 32u << 20;
    void *block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, block);
    memset(block, 1, bytes);
    const long grown = vxu_com_mem_get_rss() - before;
    munmap(block, bytes);
    EXPECT_GE(grown, static_cast<long>(bytes / page) * 9 / 10);
    EXPECT_LE(grown, static_cast<long>(bytes / page) * 3 / 2) << "counted in pages";

    EXPECT_EQ(getpid(), vxu_com_gettid());
    long in_thread = 0, library_view = 0;
    std::thread([&] {
        in_thread = syscall(SYS_gettid);
        library_view = vxu_com_gettid();
    }).join();
    EXPECT_EQ(in_thread, library_view);
    EXPECT_NE(getpid(), library_view);
}

}  // namespace
