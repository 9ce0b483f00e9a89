#include "process/process_test_util.hpp"

#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace vxu_test {

temp_dir::temp_dir()
{
    char templ[] = "/tmp/vxu_process_XXXXXX";
    path_ = mkdtemp(templ) ? templ : "";
    EXPECT_FALSE(path_.empty());
}

temp_dir::~temp_dir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string read_text(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

const char *probe_path() { return VXU_PROBE_PATH; }

std::optional<probe_record> wait_probe_record(const std::string &path)
{
    for (int i = 0; i < 1000 && !exists(path); ++i)
        usleep(10000);
    if (!exists(path))
        return std::nullopt;
    probe_record rec;
    std::istringstream in(read_text(path));
    std::string key;
    while (in >> key) {
        in.get();  // the blank after the key
        std::string value;
        std::getline(in, value);
        if (key == "pid")
            rec.pid = std::stoi(value);
        else if (key == "ppid")
            rec.ppid = std::stoi(value);
        else if (key == "sid")
            rec.sid = std::stoi(value);
        else if (key == "arg")
            rec.args.push_back(value);
        else if (key == "blocked")
            rec.blocked.insert(std::stoi(value));
        else if (key == "fd")
            rec.fds[std::stoi(value)] = value.substr(value.find(' ') + 1);
    }
    return rec;
}

void direct_probes_to(const std::string &path, bool wait)
{
    setenv("VXU_PROBE_RECORD", path.c_str(), 1);
    if (wait)
        setenv("VXU_PROBE_WAIT", "1", 1);
    else
        unsetenv("VXU_PROBE_WAIT");
}

pid_t start_probe(const std::vector<std::string> &argv, const std::string &record)
{
    direct_probes_to(record, true);
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<char *> args;
        for (const std::string &a : argv)
            args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        execv(probe_path(), args.data());
        _exit(127);
    }
    if (pid > 0 && !wait_probe_record(record)) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return 0;
    }
    return pid;
}

running_probe::running_probe(const std::vector<std::string> &argv)
    : pid(start_probe(argv, dir.file("record")))
{
    EXPECT_GT(pid, 0) << "the probe did not start";
}

running_probe::~running_probe()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

std::set<int> blocked_signals()
{
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    std::set<int> blocked;
    for (int sig = 1; sig <= SIGRTMAX; ++sig) {
        if (sigismember(&mask, sig) == 1)
            blocked.insert(sig);
    }
    return blocked;
}

namespace {

void install_filter(std::vector<sock_filter> &prog)
{
    const sock_fprog fprog = {static_cast<unsigned short>(prog.size()), prog.data()};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &fprog));
}

sock_filter load_syscall_number()
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
}

}  // namespace

void fail_syscalls(std::initializer_list<long> numbers, int err)
{
    std::vector<sock_filter> prog = {load_syscall_number()};
    auto left = static_cast<__u8>(numbers.size());
    for (long nr : numbers) {
        // A match jumps over the remaining tests and the allow.
        const auto to_errno = left--;
        prog.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(nr), to_errno, 0));
    }
    prog.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    prog.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<__u32>(err)));
    install_filter(prog);
}

void fail_forks()
{
    fail_syscalls({SYS_clone, SYS_clone3,
#ifdef SYS_fork
                   SYS_fork, SYS_vfork
#endif
                  },
                  EAGAIN);
}

void kill_writers_to(int fd)
{
    std::vector<sock_filter> prog = {
        load_syscall_number(),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(fd), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    install_filter(prog);
}

void adopt_orphans() { ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1)); }

int wait_adopted(pid_t pid)
{
    for (int i = 0; i < 2000; ++i) {  // twenty seconds
        int status = 0;
        const pid_t got = waitpid(-1, &status, WNOHANG);
        if (got == pid)
            return status;
        if (got < 0 && errno != EINTR)
            return -1;
        if (got == 0)
            usleep(10000);
    }
    kill(pid, SIGKILL);  // leave no stuck daemon behind
    waitpid(pid, nullptr, 0);
    return -1;
}

void run_with_reaper(const std::function<void()> &body)
{
    EXPECT_IN_CHILD([&] {
        adopt_orphans();
        alarm(60);  // a hung caller takes its reaper down, and itself with it
        EXPECT_IN_CHILD([&] {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
        });
        while (wait(nullptr) > 0 || errno == EINTR) {
        }
    });
}

}  // namespace vxu_test
