#include <errno.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <vxutil/process.h>

#include "process/process_test_util.hpp"

using namespace vxu_test;

namespace {

const std::string kProbeName = "vxu_process_probe";

TEST(StartDaemon, DaemonIsDetachedOnDevNullWithSplitWordsAndCallerMask)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    run_with_reaper([] {
        temp_dir dir;
        direct_probes_to(dir.file("record"));
        sigset_t usr1;
        sigemptyset(&usr1);
        sigaddset(&usr1, SIGUSR1);
        sigprocmask(SIG_BLOCK, &usr1, nullptr);
        socket_pair held;  // open in the caller, never in the daemon
        int pid = 0;
        {
            unchanged_fds_and_mask guard;
            EXPECT_EQ(0, vxu_com_start_daemon(&pid, "%s  -a\t\t'x y' \t%d", probe_path(), 1));
        }
        const auto rec = wait_probe_record(dir.file("record"));
        ASSERT_TRUE(rec);
        EXPECT_EQ(pid, rec->pid);
        EXPECT_EQ((std::vector<std::string>{kProbeName, "-a", "'x", "y'", "1"}), rec->args);
        EXPECT_EQ(
            (std::map<int, std::string>{{0, "/dev/null"}, {1, "/dev/null"}, {2, "/dev/null"}}),
            rec->fds);
        EXPECT_EQ(rec->pid, rec->sid) << "leads a session of its own";
        EXPECT_NE(getpid(), rec->ppid);
        EXPECT_EQ(std::set<int>{SIGUSR1}, rec->blocked) << "starts with the caller's mask";
    });
}

TEST(StartDaemon, DaemonHoldsOnlyTheStandardThreeWhateverTheCallerHeld)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    SKIP_UNDER_VALGRIND("raising RLIMIT_NOFILE");
    run_with_reaper([] {
        ASSERT_TRUE(raise_fd_limit(4096));
        temp_dir dir;
        direct_probes_to(dir.file("record"), true);
        socket_pair held;
        for (int fd : {1023, 1500, 4095})
            ASSERT_EQ(fd, dup2(held.fd[0], fd));
        int pid = 0;
        ASSERT_EQ(0, vxu_com_start_daemon(&pid, "%s", probe_path()));
        ASSERT_TRUE(wait_probe_record(dir.file("record")));
        EXPECT_EQ(3, count_open_fds(pid)) << "seen from outside while the daemon runs";
        kill(pid, SIGKILL);
        for (int fd : {1023, 1500, 4095})
            close(fd);
    });
}

TEST(StartDaemon, CommandLineIsCutAt29WordsAnd255Characters)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    run_with_reaper([] {
        temp_dir dir;
        direct_probes_to(dir.file("record"));
        std::string words;
        std::vector<std::string> expected = {kProbeName};
        for (int i = 1; i <= 40; ++i) {
            words += " w" + std::to_string(i);
            if (i <= 28)
                expected.push_back("w" + std::to_string(i));
        }
        EXPECT_EQ(0, vxu_com_start_daemon(nullptr, "%s%s", probe_path(), words.c_str()));
        auto rec = wait_probe_record(dir.file("record"));
        ASSERT_TRUE(rec);
        EXPECT_EQ(expected, rec->args);

        unlink(dir.file("record").c_str());
        const std::string long_word(300, 'z');
        EXPECT_EQ(0, vxu_com_start_daemon(nullptr, "%s %s", probe_path(), long_word.c_str()));
        rec = wait_probe_record(dir.file("record"));
        ASSERT_TRUE(rec);
        ASSERT_EQ(2u, rec->args.size());
        EXPECT_EQ(255 - strlen(probe_path()) - 1, rec->args[1].size());
    });
}

TEST(StartDaemon, BareNameRunsFromTheWorkingDirectory)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    run_with_reaper([] {
        temp_dir dir;
        direct_probes_to(dir.file("record"));
        ASSERT_EQ(0, symlink(probe_path(), dir.file("true").c_str()));
        ASSERT_EQ(0, chdir(dir.path().c_str()));
        EXPECT_EQ(0, vxu_com_start_daemon(nullptr, "true from-cwd"));
        const auto rec = wait_probe_record(dir.file("record"));
        ASSERT_TRUE(rec) << "the true on PATH ran instead";
        EXPECT_EQ((std::vector<std::string>{"true", "from-cwd"}), rec->args);
    });
}

TEST(StartDaemon, UnrunnableCommandLinesEndWith255)
{
    SKIP_UNDER_EMULATION(kSubreaper);
    EXPECT_IN_CHILD([] {
        adopt_orphans();
        unchanged_fds_and_mask guard;
        for (const char *line : {" \t ", "", "/nonexistent/vxu-program -x"}) {
            int pid = 0;
            EXPECT_EQ(0, vxu_com_start_daemon(&pid, "%s", line));
            ASSERT_GT(pid, 0);
            const int status = wait_adopted(pid);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 255) << "line '" << line << "'";
        }
    });
}

TEST(StartDaemon, PipeFailureLeavesSlotFdsAndMaskAlone)
{
    SKIP_UNDER_VALGRIND(kDescriptorLimits);
    for (int free : {0, 1}) {
        EXPECT_IN_CHILD([free] {
            int pid = 4711;
            unchanged_fds_and_mask guard;
            fds_taken full(leaving_free{free});
            ASSERT_TRUE(full.ok());
            EXPECT_EQ(-2, vxu_com_start_daemon(&pid, "/bin/true"));
            EXPECT_EQ(4711, pid);
        });
    }
}

TEST(StartDaemon, ForkFailureLeavesSlotFdsAndMaskAlone)
{
    SKIP_UNDER_EMULATION(kSeccomp);
    EXPECT_IN_CHILD([] {
        int pid = 4711;
        unchanged_fds_and_mask guard;
        fail_forks();
        EXPECT_EQ(-3, vxu_com_start_daemon(&pid, "/bin/true"));
        EXPECT_EQ(4711, pid);
    });
}

TEST(StartDaemon, LostReportGivesMinusOneInsteadOfHanging)
{
    SKIP_UNDER_EMULATION(kSeccomp);
    run_with_reaper([] {
        int ends[2];
        ASSERT_EQ(0, pipe(ends));  // the launcher's pipe will get the same numbers
        close(ends[0]);
        close(ends[1]);
        kill_writers_to(ends[1]);  // the intermediate child dies at its report
        unchanged_fds_and_mask guard;
        int pid = 0;
        EXPECT_EQ(0, vxu_com_start_daemon(&pid, "/bin/true"));
        EXPECT_EQ(-1, pid);
    });
}

TEST(Kill, ChecksTheExecutableThenSignals)
{
    SKIP_UNDER_EMULATION(kGuestExec);
    EXPECT_IN_CHILD([] {
        adopt_orphans();
        temp_dir dir;
        direct_probes_to(dir.file("record"), true);
        int pid = 0;
        ASSERT_EQ(0, vxu_com_start_daemon(&pid, "%s", probe_path()));
        ASSERT_TRUE(wait_probe_record(dir.file("record")));
        EXPECT_EQ(-2, vxu_com_kill(pid, "Vxu_Process_Probe", 0)) << "case-sensitive";
        EXPECT_EQ(-2, vxu_com_kill(pid, "probe_x", 1));
        EXPECT_EQ(0, kill(pid, 0)) << "a refused kill sends nothing";
        EXPECT_EQ(0, vxu_com_kill(pid, "process_pro", 0));
        int status = wait_adopted(pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);

        unlink(dir.file("record").c_str());
        ASSERT_EQ(0, vxu_com_start_daemon(&pid, "%s", probe_path()));
        ASSERT_TRUE(wait_probe_record(dir.file("record")));
        EXPECT_EQ(0, vxu_com_kill(pid, "", 1));
        status = wait_adopted(pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        EXPECT_EQ(-3, vxu_com_kill(pid, nullptr, 0)) << "gone";
    });
}

TEST(Kill, NoSignalForIdsWithoutAProcess)
{
    SKIP_UNDER_EMULATION(kSeccomp);
    EXPECT_IN_CHILD([] {
        fail_syscalls({SYS_kill}, EPERM);  // a kill that gets through shows as -1
        EXPECT_EQ(-3, vxu_com_kill(0, nullptr, 1));
        EXPECT_EQ(-3, vxu_com_kill(-1, nullptr, 1));
        EXPECT_EQ(-3, vxu_com_kill(-getpgrp(), "", 0));
        EXPECT_EQ(-1, vxu_com_kill(getpid(), nullptr, 0));
        EXPECT_EQ(EPERM, errno);
    });
}

}  // namespace
