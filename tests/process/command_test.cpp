#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include <vxutil/process.h>

#include "process/process_test_util.hpp"

using namespace vxu_test;

namespace {

std::string link_target(int fd)
{
    char target[256] = {};
    return readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1) > 0
               ? target
               : "";
}

TEST(PopenCommands, CaptureStoresExactlyWhatArrivesWithoutTerminator)
{
    unchanged_fds_and_mask guard;
    char buf[16];
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(5, vxu_os_system_ex(buf, sizeof buf, "printf %s", "hello"));
    EXPECT_EQ("hello###", std::string(buf, 8));

    // Endless output: the first bytes are kept and the command ends at pclose.
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(7, vxu_os_system_ex(buf, 7, "yes"));
    EXPECT_EQ("y\ny\ny\ny#", std::string(buf, 8));

    temp_dir dir;
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(0, vxu_os_system_ex(buf, 0, "touch %s; echo x", dir.file("ran").c_str()));
    EXPECT_TRUE(exists(dir.file("ran")));
    EXPECT_EQ('#', buf[0]);

    const std::string big(5000, 'k');
    std::string out(6000, '\0');
    EXPECT_EQ(5000, vxu_os_system_ex(out.data(), 6000, "printf %s", big.c_str()));
    EXPECT_EQ(big, out.substr(0, 5000)) << "no cut on the popen path";
}

TEST(PopenCommands, EmptyCommandStartsNothing)
{
    SKIP_UNDER_EMULATION(kSeccomp);
    EXPECT_IN_CHILD([] {
        char buf[4];
        unchanged_fds_and_mask guard;
        fail_forks();  // a started command would now surface as -1
        EXPECT_EQ(0, vxu_os_system("%s", ""));
        EXPECT_EQ(0, vexmar_do_system_call("%s", ""));
        EXPECT_EQ(-1, vxu_os_system_ex(buf, sizeof buf, "%s", ""));
        EXPECT_EQ(-1, vxu_os_system("exit 0"));
    });
}

TEST(PopenCommands, StatusIsIgnoredAndNegativeLengthRunsNothing)
{
    unchanged_fds_and_mask guard;
    EXPECT_EQ(0, vxu_os_system("exit 1"));
    EXPECT_EQ(0, vexmar_do_system_call("exit 1"));
    EXPECT_EQ(0, vxu_com_system("exit 1"));
    temp_dir dir;
    char buf[4];
    EXPECT_EQ(-1, vxu_os_system_ex(buf, -1, "touch %s", dir.file("x").c_str()));
    EXPECT_FALSE(exists(dir.file("x")));
}

TEST(PopenCommands, WriteModeGivesEndOfFileOnInputAndCallerOutput)
{
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        const std::string out = dir.file("stdout");
        const int fd = open(out.c_str(), O_WRONLY | O_CREAT, 0600);
        ASSERT_EQ(1, dup2(fd, 1));
        close(fd);
        unchanged_fds_and_mask guard;
        // cat would wait forever on an input that never ends.
        EXPECT_EQ(0, vxu_os_system("cat; echo %d", 42));
        EXPECT_EQ(0, vexmar_do_system_call("cat; echo %s", "done"));
        EXPECT_EQ("42\ndone\n", read_text(out));
    });
}

TEST(PopenCommands, FailuresReturnMinusOneAndLeakNothing)
{
    SKIP_UNDER_VALGRIND(kDescriptorLimits);
    // The pipe takes two descriptors, so one free one is not enough either.
    for (int free : {0, 1}) {
        EXPECT_IN_CHILD([free] {
            char buf[4];
            unchanged_fds_and_mask guard;
            fds_taken full(leaving_free{free});
            ASSERT_TRUE(full.ok());
            EXPECT_EQ(-1, vxu_os_system("true"));
            EXPECT_EQ(-1, vexmar_do_system_call("true"));
            EXPECT_EQ(-1, vxu_os_system_ex(buf, sizeof buf, "true"));
            EXPECT_EQ(-1, vxu_com_app_exist("init"));
        });
    }
}

TEST(ComSystem, ChildKeepsOnlyStandardDescriptorsAndCutsAt255)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        const std::string record = dir.file("record");
        direct_probes_to(record);
        socket_pair held;
        if (!under_valgrind() && raise_fd_limit(2048)) {  // valgrind keeps the limit
            ASSERT_EQ(1500, dup2(held.fd[0], 1500));
        }
        const std::string in = link_target(0), err = link_target(2);
        const std::string arg(300, 'a');
        const int saved_out = dup(1);
        close(1);
        const int rc = vxu_com_system("%s %s", probe_path(), arg.c_str());
        dup2(saved_out, 1);
        close(saved_out);
        EXPECT_EQ(0, rc);
        const auto rec = wait_probe_record(record);
        ASSERT_TRUE(rec);
        EXPECT_EQ((std::map<int, std::string>{{0, in}, {1, "/dev/null"}, {2, err}}), rec->fds);
        ASSERT_EQ(2u, rec->args.size());
        EXPECT_EQ(255 - strlen(probe_path()) - 1, rec->args[1].size()) << "cut at 255";
    });
}

// Registered in the test child: runs again in a command child only when that
// child ends through exit().
void mark_exit_handler_ran() { close(open(getenv("VXU_EXIT_MARK"), O_WRONLY | O_CREAT, 0600)); }

TEST(ComSystem, SignalsHeldWhileTheChildLivesAndMaskRestoredOnEveryPath)
{
    SKIP_UNDER_EMULATION("host signal masks and seccomp filters");
    SKIP_UNDER_VALGRIND("a child to live on after a failed execve");
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        setenv("VXU_EXIT_MARK", dir.file("mark").c_str(), 1);
        atexit(mark_exit_handler_ran);
        sigset_t usr1;
        sigemptyset(&usr1);
        sigaddset(&usr1, SIGUSR1);
        sigprocmask(SIG_BLOCK, &usr1, nullptr);
        unchanged_fds_and_mask guard;

        const std::string seen = dir.file("caller_mask");
        EXPECT_EQ(0, vxu_com_system("grep SigBlk /proc/$PPID/status > %s", seen.c_str()));
        const unsigned long long held = strtoull(read_text(seen).c_str() + 7, nullptr, 16);
        for (int sig : {SIGTERM, SIGINT, SIGCHLD, SIGUSR2, SIGRTMAX})
            EXPECT_TRUE(held >> (sig - 1) & 1) << "signal " << sig << " not held";

        signal(SIGCHLD, SIG_IGN);  // the child is reaped for us: waitpid fails
        EXPECT_EQ(-2, vxu_com_system("true"));
        EXPECT_EQ(ECHILD, errno);
        signal(SIGCHLD, SIG_DFL);

        fail_syscalls({SYS_execve, SYS_execveat}, ENOENT);
        EXPECT_EQ(0, vxu_com_system("true")) << "a shell that cannot run is still reaped";
        EXPECT_TRUE(exists(dir.file("mark"))) << "the failed child must end through exit()";

        fail_forks();
        EXPECT_EQ(-1, vxu_com_system("true"));
    });
}

TEST(ToolCommands, AppExistAsksPidof)
{
    unchanged_fds_and_mask guard;
    EXPECT_EQ(1, vxu_com_app_exist("vxu-no-such-program-4711"));
    EXPECT_EQ(-1, vxu_com_app_exist(""));
    EXPECT_EQ(-1, vxu_com_app_exist(nullptr));
}

TEST(ToolCommands, AppExistFindsARunningProgram)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    const std::string name = "vxuapp" + std::to_string(getpid());
    running_probe probe({"/opt/" + name});
    EXPECT_EQ(0, vxu_com_app_exist(name.c_str()));
}

TEST(ToolCommands, FileSyncRunsFsyncWithTheUnquotedPath)
{
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        const std::string log = dir.file("log");
        write_text(dir.file("fsync"), "#!/bin/sh\nprintf '%s\\n' \"$@\" >> " + log + "\nexit 3\n");
        chmod(dir.file("fsync").c_str(), 0700);
        setenv("PATH", (dir.path() + ":" + getenv("PATH")).c_str(), 1);
        unchanged_fds_and_mask guard;

        EXPECT_EQ(-1, vxu_com_file_sync(nullptr));
        EXPECT_EQ(-1, vxu_com_file_sync(""));
        EXPECT_FALSE(exists(log)) << "nothing may run for an empty path";
        EXPECT_EQ(0, vxu_com_file_sync("/data/a b")) << "the tool's failure is not reported";
        EXPECT_EQ("-d\n/data/a\nb\n", read_text(log));

        unlink(log.c_str());
        const std::string deep = "/" + std::string(299, 'p');
        EXPECT_EQ(0, vxu_com_file_sync(deep.c_str()));
        EXPECT_EQ("-d\n" + deep.substr(0, 255 - strlen("fsync -d ")) + "\n", read_text(log));
    });
}

}  // namespace
