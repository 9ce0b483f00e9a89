// Helpers for the process tests: a scratch directory, the probe program and
// its record, forced system-call failures, adopted daemons.
#pragma once

#include <stdlib.h>
#include <sys/types.h>

#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/test_support.hpp"

namespace vxu_test {

// What the tests that need real processes skip for under emulation.
constexpr const char *kGuestExec = "execve of guest programs";
constexpr const char *kSeccomp = "seccomp filters";
constexpr const char *kSubreaper = "child subreapers";

// A fresh directory under /tmp, removed with everything in it.
class temp_dir {
public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir &) = delete;
    temp_dir &operator=(const temp_dir &) = delete;
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

std::string read_text(const std::string &path);  // "" when missing
void write_text(const std::string &path, const std::string &text);
bool exists(const std::string &path);

// What the probe program found about itself.
struct probe_record {
    int pid = 0, ppid = 0, sid = 0;
    std::vector<std::string> args;
    std::map<int, std::string> fds;  // descriptor -> link target
    std::set<int> blocked;           // signals in its mask
};

const char *probe_path();
// Waits up to ten seconds for the record at path.
std::optional<probe_record> wait_probe_record(const std::string &path);
// Makes the probes started from this process record to path (and wait for a
// signal afterwards when wait is set).
void direct_probes_to(const std::string &path, bool wait = false);
// Starts the probe as a child with this argument vector and waits for its
// record; 0 when it did not start.
pid_t start_probe(const std::vector<std::string> &argv, const std::string &record);

// A waiting probe started under argv, killed and reaped at scope exit.
struct running_probe {
    explicit running_probe(const std::vector<std::string> &argv);
    ~running_probe();
    running_probe(const running_probe &) = delete;
    running_probe &operator=(const running_probe &) = delete;

    temp_dir dir;
    pid_t pid;
};

std::set<int> blocked_signals();  // the calling thread's mask

// Fails the current test when a scope leaks descriptors or leaves the
// calling thread's signal mask changed.
class unchanged_fds_and_mask {
public:
    unchanged_fds_and_mask() : mask_(blocked_signals()) {}
    ~unchanged_fds_and_mask() { EXPECT_EQ(mask_, blocked_signals()) << "signal mask changed"; }

private:
    fd_leak_check fds_;
    std::set<int> mask_;
};

// From now on the listed system calls fail with err in this process and its
// children (seccomp). Only for forked test children.
void fail_syscalls(std::initializer_list<long> numbers, int err);
// fork in any form fails with EAGAIN.
void fail_forks();
// A write to descriptor fd kills the writing process.
void kill_writers_to(int fd);

// Makes this process adopt its orphaned descendants, and waits up to twenty
// seconds for one of them (the daemon pid) to end, reaping whatever else
// ends meanwhile; its wait status, or -1 after killing it.
void adopt_orphans();
int wait_adopted(pid_t pid);

// Runs body in a child ("the caller") whose orphans a parent adopts and
// reaps, so daemons started in body are never body's children.
void run_with_reaper(const std::function<void()> &body);

}  // namespace vxu_test
