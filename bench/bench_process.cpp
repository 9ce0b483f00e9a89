// Command runners and the daemon launcher against posix_spawn of the same
// shell; the child's descriptor clean-up against a close loop at growing
// bounds; the in-process name lookup against pgrep -x and pidof.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include <benchmark/benchmark.h>

#include <vxutil/process.h>

#include "process/child_descriptors.hpp"

extern char **environ;

namespace {

constexpr int kProcessesPresent = 200;
const char *const kAbsentName = "vxunobody";  // pgrep matches 15 characters at most

void spawn_and_wait(const char *path, char *const argv[], bool quiet)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (quiet)
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (quiet)
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid;
    if (posix_spawn(&pid, path, &actions, nullptr, argv, environ) == 0)
        waitpid(pid, nullptr, 0);
    posix_spawn_file_actions_destroy(&actions);
}

void reap_finished()
{
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

// Most of each iteration is spent in a child, so every benchmark here sizes
// its runs by elapsed time, not by this process's CPU time.
void BM_PosixSpawnShTrue(benchmark::State &state)
{
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"), const_cast<char *>("true"),
                    nullptr};
    for (auto _ : state)
        spawn_and_wait("/bin/sh", argv, false);
}
BENCHMARK(BM_PosixSpawnShTrue)->UseRealTime()->Unit(benchmark::kMillisecond);

// The floor of any fork-based runner: fork, exec, waitpid and nothing else.
void BM_ForkExecShTrue(benchmark::State &state)
{
    for (auto _ : state) {
        const pid_t pid = fork();
        if (pid == 0) {
            execl("/bin/sh", "sh", "-c", "true", static_cast<char *>(nullptr));
            _exit(127);
        }
        waitpid(pid, nullptr, 0);
    }
}
BENCHMARK(BM_ForkExecShTrue)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ComSystemTrue(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(vxu_com_system("true"));
}
BENCHMARK(BM_ComSystemTrue)->UseRealTime()->Unit(benchmark::kMillisecond);

// The daemons come back to this process (a subreaper) and are reaped as
// they end, outside the measured call.
void BM_StartDaemonTrue(benchmark::State &state)
{
    for (auto _ : state) {
        int pid;
        benchmark::DoNotOptimize(vxu_com_start_daemon(&pid, "/bin/true"));
        state.PauseTiming();
        reap_finished();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StartDaemonTrue)->UseRealTime()->Unit(benchmark::kMillisecond);

void close_loop(long bound)
{
    for (long fd = 3; fd < bound; ++fd)
        close(static_cast<int>(fd));
}

// fork, clean up in the child up to the bound, _exit, waitpid.
template <void (*CleanUp)(long)>
void BM_ForkCleanUp(benchmark::State &state)
{
    const long bound = state.range(0);
    for (auto _ : state) {
        const pid_t pid = fork();
        if (pid == 0) {
            CleanUp(bound);
            _exit(0);
        }
        waitpid(pid, nullptr, 0);
    }
}
// The library closes every descriptor above 2 whatever the limit: one call.
void library_clean_up(long) { vxu::process::reset_child_descriptors(); }
BENCHMARK_TEMPLATE(BM_ForkCleanUp, close_loop)
    ->Arg(1024)
    ->Arg(20000)
    ->Arg(1 << 20)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ForkCleanUp, library_clean_up)
    ->Arg(1024)
    ->Arg(20000)
    ->Arg(1 << 20)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void BM_CheckProcessByName(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(vexmar_check_process_by_name(kAbsentName));
}
BENCHMARK(BM_CheckProcessByName)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_PgrepX(benchmark::State &state)
{
    char *argv[] = {const_cast<char *>("pgrep"), const_cast<char *>("-x"),
                    const_cast<char *>(kAbsentName), nullptr};
    for (auto _ : state)
        spawn_and_wait("/usr/bin/pgrep", argv, true);
}
BENCHMARK(BM_PgrepX)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_Pidof(benchmark::State &state)
{
    char *argv[] = {const_cast<char *>("pidof"), const_cast<char *>(kAbsentName), nullptr};
    for (auto _ : state)
        spawn_and_wait("/bin/pidof", argv, true);
}
BENCHMARK(BM_Pidof)->UseRealTime()->Unit(benchmark::kMillisecond);

int count_processes()
{
    DIR *proc = opendir("/proc");
    int n = 0;
    while (const dirent *e = proc ? readdir(proc) : nullptr)
        n += e->d_name[0] >= '0' && e->d_name[0] <= '9';
    if (proc)
        closedir(proc);
    return n;
}

// Idle children that bring the process count up to the one measured.
std::vector<pid_t> fill_process_table()
{
    std::vector<pid_t> idle;
    for (int n = count_processes(); n < kProcessesPresent; ++n) {
        const pid_t pid = fork();
        if (pid == 0) {
            pause();
            _exit(0);
        }
        if (pid > 0)
            idle.push_back(pid);
    }
    return idle;
}

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const std::vector<pid_t> idle = fill_process_table();
    benchmark::AddCustomContext("processes", std::to_string(count_processes()));
    benchmark::AddCustomContext("open_max", std::to_string(sysconf(_SC_OPEN_MAX)));
    benchmark::RunSpecifiedBenchmarks();
    for (pid_t pid : idle)
        kill(pid, SIGKILL);
    while (wait(nullptr) > 0) {
    }
    benchmark::Shutdown();
    return 0;
}
