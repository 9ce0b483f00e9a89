// Process tests. This program doubles as the probe that the commands and
// daemons under test start: run with VXU_PROBE set, it records how it was
// started before main runs, then ends (after up to 30 s when VXU_PROBE_WAIT
// is 1, so that a test can find and signal it).
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <vxutil/frame.h>
#include <vxutil/process.h>

#include "common/test_support.hpp"

using namespace vxu_test;

namespace {

std::string read_text(const std::string &path)
{
    return std::string(std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {});
}
void write_text(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }
std::string link(const std::string &path) { return std::filesystem::read_symlink(path); }
// A line of /proc/<pid>/status from the key on, e.g. "SigBlk:\t0000000000000200".
std::string status_line(const std::string &pid, const char *key)
{
    const std::string status = read_text("/proc/" + pid + "/status");
    return status.substr(status.find(key), 24);
}

// The record, a line each: "pid ppid sid"; the open descriptors as
// "fd:target "; the blocked signals; the arguments, each ended by "|".
__attribute__((constructor)) void probe_main()
{
    const char *out = getenv("VXU_PROBE");
    if (!out)
        return;
    std::ostringstream rec;
    rec << getpid() << ' ' << getppid() << ' ' << getsid(0) << '\n';
    for (int fd = 0; fd < 4096; ++fd) {  // the tests plant none higher
        if (fcntl(fd, F_GETFD) != -1)
            rec << fd << ':' << link("/proc/self/fd/" + std::to_string(fd)) << ' ';
    }
    std::string args = read_text("/proc/self/cmdline");
    std::replace(args.begin(), args.end(), '\0', '|');
    rec << '\n' << status_line("self", "SigBlk") << '\n' << args << '\n';
    write_text(out + std::string(".tmp"), rec.str());
    rename((out + std::string(".tmp")).c_str(), out);
    sleep(*getenv("VXU_PROBE_WAIT") == '1' ? 30 : 0);
    _exit(0);
}

const std::string kProbe = std::filesystem::read_symlink("/proc/self/exe");
const std::string kProbeName = kProbe.substr(kProbe.rfind('/') + 1);

// A probe's record: waits up to ten seconds for it at path, and takes it away.
struct probe_record {
    int pid = 0, ppid = 0, sid = 0;
    std::string fds, blocked, args;
    explicit probe_record(const std::string &path)
    {
        for (int i = 0; i < 1000 && !exists(path); ++i)
            usleep(10000);
        std::istringstream in(read_text(path));
        in >> pid >> ppid >> sid;
        std::getline(std::getline(std::getline(in.ignore(), fds), blocked), args);
        EXPECT_EQ(0, unlink(path.c_str())) << "no record from the probe";
    }
};

struct temp_dir {
    std::string path = mkdtemp(std::string("/tmp/vxu_process_XXXXXX").data());
    std::error_code ignored;
    ~temp_dir() { std::filesystem::remove_all(path, ignored); }
    std::string file(const char *name) const { return path + "/" + name; }
};

// Fails a scope that leaks descriptors or leaves the thread's mask changed.
struct unchanged_fds_and_mask {
    fd_leak_check fds;
    std::string mask = status_line("thread-self", "SigBlk");
    ~unchanged_fds_and_mask() { EXPECT_EQ(mask, status_line("thread-self", "SigBlk")); }
};

// From now on the listed system calls fail with err in this process and its
// children; with arg given, only calls whose argument arg is value (seccomp).
void fail_calls(std::initializer_list<long> numbers, int err, int arg = -1, int value = 0)
{
    std::vector<sock_filter> p = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    auto left = static_cast<__u8>(numbers.size());
    for (long nr : numbers)  // a match jumps past the other tests and the allow
        p.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(nr), left--, 0));
    p.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    if (arg >= 0) {
        p.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS,
                             static_cast<__u32>(offsetof(seccomp_data, args) + 8u * arg)));
        p.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(value), 1, 0));
        p.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    p.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<__u32>(err)));
    const sock_fprog prog = {static_cast<unsigned short>(p.size()), p.data()};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &prog));
}

TEST(Commands, PopenRunnersAndFileSync)
{
    temp_dir dir;
    setenv("RAN", dir.file("ran").c_str(), 1);
    // Command, length, result, buffer head. Output past the length meets a closed
    // pipe; a negative length or an empty command runs nothing.
    // clang-format off
    const std::tuple<const char *, int, int, const char *> rows[] = {
        {"touch $RAN; printf hello", 16, 5, "hello###"}, {"touch $RAN; yes", 7, 7, "y\ny\ny\ny#"},
        {"touch $RAN; echo x", 0, 0, "########"}, {"touch $RAN", -1, -1, "########"},
        {"", 8, -1, "########"}};
    // clang-format on
    unchanged_fds_and_mask guard;
    for (const auto &[cmd, len, rc, head] : rows) {
        char buf[16] = "###############";
        EXPECT_EQ(rc, vxu_os_system_ex(buf, len, "%s", cmd)) << cmd << ", " << len;
        EXPECT_EQ(head, std::string(buf, 8)) << cmd;
        EXPECT_EQ(rc >= 0, unlink(dir.file("ran").c_str()) == 0) << cmd;
    }
    for (auto run : {vxu_os_system, vexmar_do_system_call, vxu_com_system})
        EXPECT_EQ(0, run("exit 1")) << "the command's status is not reported";
    EXPECT_IN_CHILD([&] {
        ASSERT_EQ(1, dup2(open(dir.file("out").c_str(), O_WRONLY | O_CREAT, 0600), 1));
        // cat would wait forever on an input that never ends.
        EXPECT_EQ(0, vxu_os_system("cat; echo %d", 42));
        EXPECT_EQ(0, vexmar_do_system_call("cat; echo %s", "done"));
        // A stand-in for the device's fsync tool logs its arguments.
        write_text(dir.file("fsync"), "#!/bin/sh\nprintf '%s\\n' \"$@\" >> $RAN\nexit 3\n");
        chmod(dir.file("fsync").c_str(), 0700);
        setenv("PATH", (dir.path + ":" + getenv("PATH")).c_str(), 1);
        EXPECT_EQ(-1, vxu_com_file_sync(nullptr));
        EXPECT_EQ(-1, vxu_com_file_sync(""));
        EXPECT_FALSE(exists(dir.file("ran"))) << "nothing may run for an empty path";
        EXPECT_EQ(0, vxu_com_file_sync("/data/a b")) << "the tool's failure is not reported";
        EXPECT_EQ("-d\n/data/a\nb\n", read_text(dir.file("ran")));
    });
    EXPECT_EQ("42\ndone\n", read_text(dir.file("out"))) << "the caller's output";
}

// Every call that opens a descriptor or forks, with no descriptor free, with
// one free (a pipe needs two), and with fork refused.
class Failures : public ::testing::TestWithParam<int> {};
constexpr int kAny = 99;  // a result not checked

TEST_P(Failures, EveryCallFailsCleanly)
{
    const int cond = GetParam();
    SKIP_UNDER_EMULATION(cond < 2 ? "execve of guest programs"
                                  : "seccomp filters");  // by name: /proc shows qemu
    if (cond < 2)
        SKIP_UNDER_VALGRIND(kDescriptorLimits);
    ASSERT_TRUE(mkdir("/tmp/vx_flags", 0777) == 0 || errno == EEXIST);
    const std::string name = "vxutest_" + std::to_string(getpid()), flag = "/tmp/vx_flags/" + name;
    temp_dir dir;
    const std::string pid_file = dir.file("pid"), lock = dir.file("lock");
    const char *self = program_invocation_short_name, *pf = pid_file.c_str(), *lk = lock.c_str();
    ASSERT_EQ(0, vxu_com_add_flag_file(name.c_str()));
    char buf[4];
    int slot = 4711, lock_fd = -1;
    // Results with no descriptor free, one free, no fork; 3: some descriptor.
    const std::tuple<const char *, std::function<int()>, std::array<int, 3>> rows[] = {
        {"os_system", [] { return vxu_os_system("true"); }, {-1, -1, -1}},
        {"do_system_call", [] { return vexmar_do_system_call("true"); }, {-1, -1, -1}},
        {"os_system_ex", [&] { return vxu_os_system_ex(buf, 4, "true"); }, {-1, -1, -1}},
        {"empty os_system", [] { return vxu_os_system("%s", ""); }, {0, 0, 0}},
        {"app_exist", [] { return vxu_com_app_exist("init"); }, {-1, -1, -1}},
        {"com_system", [] { return vxu_com_system("true"); }, {0, 0, -1}},
        {"start_daemon", [&] { return vxu_com_start_daemon(&slot, "/bin/true"); }, {-2, -2, -3}},
        {"by name",
         [&] { return vexmar_check_process_by_name(self); },
         {-1, -1, under_valgrind() ? kAny : 0}},  // valgrind may hide this name
        {"by pid", [&] { return vexmar_check_process_by_pid(getpid(), self); }, {-1, 0, 0}},
        {"write pid", [&] { return vexmar_write_pid_file(pf); }, {-1, 0, 0}},  // this child's
        {"pid file", [&] { return vexmar_check_process_by_pid_file(pf, self); }, {-1, 0, 0}},
        {"resident pages", [] { return vxu_com_mem_get_rss() > 0 ? 0 : -1; }, {-1, 0, 0}},
        {"raise flag", [&] { return vxu_com_add_flag_file((name + "_new").c_str()); }, {-1, 0, 0}},
        {"lower flag", [&] { return vxu_com_del_flag_file(name.c_str()); }, {-1, 0, 0}},
        {"lock probe", [&] { return vexmar_check_process_singal_instance(lk); }, {-1, 0, 0}},
        {"lock, held from here",
         [&] { return lock_fd = vexmar_set_process_single_instance(lk); },
         {-1, 3, 3}}};
    EXPECT_IN_CHILD([&] {
        unchanged_fds_and_mask guard;
        if (cond == 2)
            fail_calls({SYS_clone, SYS_clone3}, EAGAIN);
        const auto pressure = cond < 2 ? std::make_unique<fds_taken>(leaving_free{cond}) : nullptr;
        ASSERT_TRUE(!pressure || pressure->ok());
        for (const auto &[what, call, rc] : rows) {
            const int got = std::min(call(), 3);
            EXPECT_TRUE(rc[cond] == got || rc[cond] == kAny) << what << " gave " << got;
        }
        vexmar_release_process_single_instance(lock_fd);
        EXPECT_EQ(4711, slot) << "the pid slot is untouched";
    });
    // Without a descriptor nothing is created, and a lowered flag is gone all the same.
    for (const std::string &f : {lock, flag + "_new.flag", flag + ".remove"})
        EXPECT_EQ(cond != 0, unlink(f.c_str()) == 0) << f;
    EXPECT_FALSE(exists(flag + ".flag"));
}

INSTANTIATE_TEST_SUITE_P(Conditions, Failures, ::testing::Values(0, 1, 2));

TEST(ComSystem, SignalsHeldWhileTheChildLivesAndMaskRestoredOnEveryPath)
{
    SKIP_UNDER_EMULATION("host signal masks and seccomp filters");
    SKIP_UNDER_VALGRIND("a child to live on after a failed execve");
    EXPECT_IN_CHILD([] {
        temp_dir dir;
        setenv("VXU_EXIT_MARK", dir.file("mark").c_str(), 1);
        // Runs again in a command child only when that child ends through exit().
        atexit([] { close(open(getenv("VXU_EXIT_MARK"), O_WRONLY | O_CREAT, 0600)); });
        unchanged_fds_and_mask guard;
        EXPECT_EQ(0, vxu_com_system("grep SigBlk /proc/$PPID/status > %s", dir.file("m").c_str()));
        const unsigned long long held = strtoull(read_text(dir.file("m")).c_str() + 7, nullptr, 16);
        for (int sig : {SIGTERM, SIGINT, SIGCHLD, SIGUSR2, SIGRTMAX})
            EXPECT_TRUE(held >> (sig - 1) & 1) << "signal " << sig << " not held";
        signal(SIGCHLD, SIG_IGN);  // the child is reaped for us: waitpid fails
        EXPECT_TRUE(vxu_com_system("true") == -2 && errno == ECHILD) << "waitpid fails";
        signal(SIGCHLD, SIG_DFL);
        fail_calls({SYS_execve, SYS_execveat}, ENOENT);
        EXPECT_EQ(0, vxu_com_system("true")) << "a shell that cannot run is still reaped";
        EXPECT_TRUE(exists(dir.file("mark"))) << "the failed child must end through exit()";
    });
}

TEST(Children, StandardDescriptorsOnlyAndDaemonsFromTheirWordsToTheirEnd)
{
    SKIP_UNDER_EMULATION("execve of guest programs");
    EXPECT_IN_CHILD([] {  // adopts and reaps the orphans (the daemons) of its child, the caller
        ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1));
        alarm(30);  // a hung test dies rather than blocking the suite
        EXPECT_IN_CHILD([] {
            temp_dir dir;
            setenv("VXU_PROBE", dir.file("rec").c_str(), 1);
            setenv("VXU_PROBE_WAIT", "0", 1);
            sigset_t term;  // the daemon starts with this mask: a SIGTERM stays pending
            sigemptyset(&term);
            sigaddset(&term, SIGTERM);
            pthread_sigmask(SIG_BLOCK, &term, nullptr);
            socket_pair held;  // open in the caller, never in its children
            if (!under_valgrind() && raise_fd_limit(4096)) {  // valgrind keeps the limit
                for (int fd : {1023, 1500, 4095})
                    ASSERT_EQ(fd, dup2(held.fd[0], fd));
                struct rlimit lowered;  // descriptors above the soft limit close too
                ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &lowered));
                lowered.rlim_cur = 1024;
                ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &lowered));
            }
            close(0);  // the shell's input becomes /dev/null
            unchanged_fds_and_mask guard;
            EXPECT_EQ(0, vxu_com_system("%s %s", kProbe.c_str(), std::string(300, 'a').c_str()));
            probe_record rec(dir.file("rec"));
            const std::string out = link("/proc/self/fd/1"), err = link("/proc/self/fd/2");
            EXPECT_EQ("0:/dev/null 1:" + out + " 2:" + err + " ", rec.fds);
            EXPECT_EQ(kProbe + "|" + std::string(254 - kProbe.size(), 'a') + "|", rec.args);

            // The daemon: "true" from the working directory, not from PATH; its
            // words split at blanks and tabs only, 29 at most.
            ASSERT_EQ(0, symlink(kProbe.c_str(), dir.file("true").c_str()));
            ASSERT_EQ(0, chdir(dir.path.c_str()));
            std::string words, first29 = "true|-a|'x|y'|1|";
            for (int i = 1; i <= 40; ++i) {
                words += " w" + std::to_string(i);
                first29 += i <= 24 ? "w" + std::to_string(i) + "|" : "";
            }
            setenv("VXU_PROBE_WAIT", "1", 1);
            int pid = 0;
            EXPECT_EQ(0, vxu_com_start_daemon(&pid, "true  -a\t\t'x y' \t%d%s", 1, words.c_str()));
            rec = probe_record(dir.file("rec"));
            EXPECT_EQ(first29, rec.args);
            EXPECT_EQ("0:/dev/null 1:/dev/null 2:/dev/null ", rec.fds);
            EXPECT_TRUE(rec.pid == pid && rec.sid == pid && rec.ppid != getpid())
                << "a session of its own, and no child of its caller";
            EXPECT_EQ("SigBlk:\t0000000000004000", rec.blocked) << "the caller's mask, SIGTERM";
            const std::string daemon = std::to_string(pid), none = "ShdPnd:\t0000000000000000";
            EXPECT_EQ(-2, vxu_com_kill(pid, "Process_Test", 0)) << "case-sensitive";
            EXPECT_EQ(-2, vxu_com_kill(pid, "test_x", 1));
            EXPECT_EQ(none, status_line(daemon, "ShdPnd")) << "a refused kill sends nothing";
            EXPECT_EQ(0, vxu_com_kill(pid, "cess_te", 0));
            EXPECT_EQ("ShdPnd:\t0000000000004000", status_line(daemon, "ShdPnd")) << "SIGTERM";
            EXPECT_EQ(0, vxu_com_kill(pid, "", 1));
            for (int i = 0; i < 1000 && vxu_com_kill(pid, nullptr, 0) != -3; ++i)
                usleep(10000);  // SIGKILL: gone at once
            EXPECT_EQ(-3, vxu_com_kill(pid, nullptr, 0));
        });
        for (const char *line : {" \t ", "", "/nonexistent/vxu-program -x"}) {
            int pid = 0, status = -1;
            EXPECT_EQ(0, vxu_com_start_daemon(&pid, "%s", line));
            for (int i = 0; i < 1000 && waitpid(pid, &status, 0) != pid; ++i)
                usleep(10000);  // ours once the launcher's child has ended
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 255) << "line '" << line << "'";
        }
        // The report's write fails (on its descriptor), or its read (the only one of
        // 31 bytes: the launcher keeps room for a terminator); other descriptors
        // with these numbers, such as coverage files, are left alone.
        for (long nr : {SYS_write, SYS_read}) {
            EXPECT_IN_CHILD([nr] {
                prctl(PR_SET_PDEATHSIG, SIGKILL);  // a launcher stuck with signals blocked
                int ends[2];
                ASSERT_EQ(0, pipe(ends));  // the launcher's pipe gets the same numbers
                close(ends[0]);
                close(ends[1]);
                fail_calls({nr}, EIO, nr == SYS_write ? 0 : 2, nr == SYS_write ? ends[1] : 31);
                int pid = 0;
                EXPECT_EQ(0, vxu_com_start_daemon(&pid, "/bin/true"));
                EXPECT_EQ(-1, pid) << "failing call " << nr;
            });
        }
        fail_calls({SYS_kill}, EPERM);  // a kill that gets through shows as -1
        for (int id : {0, -1, -getpgrp()})
            EXPECT_EQ(-3, vxu_com_kill(id, nullptr, 1)) << id;
        EXPECT_EQ(-1, vxu_com_kill(getpid(), nullptr, 0));
        EXPECT_EQ(EPERM, errno);
        while (wait(nullptr) > 0 || errno == EINTR)
            continue;
    });
}

TEST(Lookup, ByPidByNameByPidFileAndSelfStats)
{
    SKIP_UNDER_EMULATION("execve of guest programs");
    temp_dir dir;
    const std::string x255(255, 'x'), x256(256, 'x'), x300(300, 'x'), file = dir.file("pid");
    const std::string own = std::to_string(getpid()) + "\n", more = kProbeName + "x";
    std::string env[] = {"VXU_PROBE=" + dir.file("rec"), "VXU_PROBE_WAIT=1"}, arg = x300;
    char *envp[] = {env[0].data(), env[1].data(), nullptr}, script[] = "/etc/init.d/vxufoo";
    char *argv[] = {arg.data(), script, nullptr};  // a long first argument, then another
    pid_t self = getpid(), other = -1;
    ASSERT_EQ(0, posix_spawn(&other, kProbe.c_str(), nullptr, nullptr, argv, envp));
    probe_record{dir.file("rec")};  // once it runs
    fd_leak_check fds;
    // This program runs as <build>/tests/process/process_test; pid 2, a kernel
    // thread, has an empty command line.
    // clang-format off
    const std::tuple<pid_t, const char *, int> rows[] = {
        {self, kProbeName.c_str(), 0}, {self, "PROCESS_T", 0}, {self, "", 0}, {self, "tests", -1},
        {self, kProbe.c_str(), -1}, {self, more.c_str(), -1}, {self, nullptr, -1},
        {other, "vxufoo", -1}, {other, x255.c_str(), 0}, {other, x256.c_str(), -1}, {-1, "", -1},
        {2, "kthreadd", -1}, {2, "", exists("/proc/2") ? 0 : -1}};
    // clang-format on
    for (const auto &[pid, name, rc] : rows)
        EXPECT_EQ(rc, vexmar_check_process_by_pid(pid, name))
            << pid << " " << (name ? name : "null");
    EXPECT_EQ(0, vexmar_check_process_by_name(x255.c_str()));
    if (!under_valgrind()) {  // whose command line then names valgrind
        EXPECT_EQ(0, vxu_com_app_exist(kProbeName.c_str())) << "pidof finds this program";
    }
    EXPECT_EQ(0, vexmar_write_pid_file(file.c_str()));
    EXPECT_EQ(own, read_text(file));
    // clang-format off
    const std::tuple<std::string, const char *, int> pid_files[] = {
        {own, "PROCESS_T", 0}, {own, "vxu-other", -1}, {own, nullptr, -1}, {"0\n", "", -1},
        {"  " + std::to_string(other) + "abc\n", "xxx", 0}, {"abc\n", "", -1}, {"", "", -1}};
    // clang-format on
    for (const auto &[text, name, rc] : pid_files) {
        write_text(file, text);
        EXPECT_EQ(rc, vexmar_check_process_by_pid_file(file.c_str(), name)) << text;
    }
    for (int rc :
         {vexmar_check_process_by_pid_file(dir.file("missing").c_str(), ""),
          vexmar_check_process_by_pid_file(dir.path.c_str(), ""),  // a read error ends the read
          vexmar_check_process_by_pid_file(nullptr, ""), vexmar_write_pid_file(nullptr),
          vexmar_write_pid_file(dir.file("no/dir").c_str()), vexmar_check_process_by_name(nullptr),
          vxu_com_app_exist(""), vxu_com_app_exist(nullptr)})
        EXPECT_EQ(-1, rc) << "no such file or directory, or no path or name";
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    EXPECT_EQ(-1, vexmar_check_process_by_name(x255.c_str())) << "gone";
    EXPECT_EQ(1, vxu_com_app_exist("vxu-no-such-program"));
    const double kb = std::stod(status_line("self", "VmRSS").substr(7));  // the same, in kB
    EXPECT_NEAR(kb * 1024 / sysconf(_SC_PAGESIZE), vxu_com_mem_get_rss(), 64) << "resident pages";
    EXPECT_EQ(getpid(), vxu_com_gettid());
    std::thread([] { EXPECT_EQ(syscall(SYS_gettid), vxu_com_gettid()); }).join();
}

TEST(SingleInstance, SecondInstanceWaitsUntilTheFirstReleases)
{
    EXPECT_IN_CHILD([] {
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
        struct sigaction sa = {};
        sa.sa_handler = [](int) {};  // without SA_RESTART the waiting flock fails with EINTR
        ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));
        ualarm(200000, 200000);  // again and again, should one come before the wait
        EXPECT_EQ(-1, vexmar_set_process_single_instance(lock.c_str()));
        EXPECT_EQ(EINTR, errno);
        ualarm(0, 0);
        vexmar_release_process_single_instance(held);
        EXPECT_EQ(0, vexmar_check_process_singal_instance(lock.c_str())) << "free once released";
    });
}

// The stamp in path in milliseconds, its form checked; -1 when missing.
long long stamp_ms(const std::string &path)
{
    long long s = -1, ms = 0;
    char canonical[32] = "";
    if (sscanf(read_text(path).c_str(), "%lld.%lld", &s, &ms) == 2)
        snprintf(canonical, sizeof canonical, "%lld.%03lld\n", s, ms);
    EXPECT_EQ(exists(path) ? canonical : "", read_text(path)) << path;
    return s < 0 ? -1 : s * 1000 + ms;
}

TEST(FlagFiles, RandomRaisesAndLowersFollowTheFourStates)
{
    ASSERT_TRUE(mkdir("/tmp/vx_flags", 0777) == 0 || errno == EEXIST);
    const std::string name = "vxutest_" + std::to_string(getpid()), path = "/tmp/vx_flags/" + name;
    const std::string files[2] = {path + ".flag", path + ".remove"};
    fd_leak_check fds;
    unsigned seed = 7;
    long long model[2] = {-1, -1};  // stamps of the flag and removal files; -1: none
    for (int step = 0; step < 40; ++step) {
        const bool raise = rand_r(&seed) % 2;
        SCOPED_TRACE("seed 7, step " + std::to_string(step) + (raise ? ", raise" : ", lower"));
        const auto before = static_cast<long long>(vxu_com_get_uptime_ms());
        const int rc =
            raise ? vxu_com_add_flag_file(name.c_str()) : vxu_com_del_flag_file(name.c_str());
        const auto after = static_cast<long long>(vxu_com_get_uptime_ms());
        const int written = raise ? 0 : model[0] >= 0 ? 1 : -1;  // the file with the new time
        EXPECT_EQ(written < 0 ? -2 : 0, rc);
        model[0] = written == 1 ? -1 : model[0];
        for (int i : {0, 1}) {
            const long long got = stamp_ms(files[i]);
            EXPECT_TRUE(i == written ? before <= got && got <= after : got == model[i])
                << files[i] << ": " << got << ", not " << model[i] << " or in " << before << ".."
                << after;
            model[i] = got;
        }
    }
    for (const auto &f : files)
        unlink(f.c_str());
    // No flag directory of that name: nothing raised, nothing to lower, nothing created.
    for (int rc : {vxu_com_add_flag_file(nullptr), vxu_com_del_flag_file(nullptr),
                   vxu_com_add_flag_file((name + "_dir/x").c_str())})
        EXPECT_EQ(-1, rc);
    EXPECT_EQ(-2, vxu_com_del_flag_file((name + "_dir/x").c_str()));
    EXPECT_FALSE(exists(path + "_dir"));
}

}  // namespace
