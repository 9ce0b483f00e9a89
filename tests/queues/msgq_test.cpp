// The message queue family against real System V queues in an IPC namespace
// of its own, where ids start at 0 and msgmni 0 makes msgget fail. The test
// defines __vx_log, so log lines land in g_log, and interposes ftok to force
// its failure.
#include <dlfcn.h>
#include <sched.h>
#include <stdarg.h>
#include <sys/msg.h>
#include <sys/stat.h>

#include <vxutil/queues.h>

#include "common/test_support.hpp"
#include "vxlog.h"

namespace {
void *const kHandle = reinterpret_cast<void *>(0x5a5a);
std::string g_log;     // "level function: text" per line
int g_ftok_error = 0;  // forced on the next call
}  // namespace

extern "C" int __vx_log(void *handle, const char *function, int level, const char *format, ...)
{
    char text[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    g_log += std::to_string(level) + " " + function + ": " + text + (handle == kHandle ? "" : "!");
    errno = EBADMSG;  // a logging library may disturb errno; the caller must not see it
    return 0;
}

extern "C" key_t ftok(const char *path, int proj_id)
{
    static const auto next =
        reinterpret_cast<key_t (*)(const char *, int)>(dlsym(RTLD_NEXT, "ftok"));
    return g_ftok_error ? (errno = std::exchange(g_ftok_error, 0), -1) : next(path, proj_id);
}

namespace {

constexpr int kProj = 'v';

// One row: the call's result, errno after it (0: not checked) and the line
// it logged (empty: none).
void check(const char *call, int rc, int result, int error, const std::string &log)
{
    EXPECT_TRUE(!error || error == errno) << call << ": " << strerror(errno);
    EXPECT_EQ(result, rc) << call;
    EXPECT_EQ(log, g_log) << call;
    g_log.clear();
    errno = 0;
}
#define ROW(call, result, error, log) check(#call, call, result, error, log)

TEST(MsgQueue, ReturnCodesErrnoAndLogLines)
{
    if (vxu_test::run_in_child([] { _exit(unshare(CLONE_NEWIPC) ? 1 : 0); }) != 0)
        GTEST_SKIP() << "unshare(CLONE_NEWIPC) refused: needs CAP_SYS_ADMIN";
    EXPECT_IN_CHILD([] {
        char dir[] = "/tmp/vxu_msgq_XXXXXX";
        ASSERT_TRUE(unshare(CLONE_NEWIPC) == 0 && mkdtemp(dir) && chdir(dir) == 0);
        umask(0);
        const vxu_test::fd_leak_check no_leaks;  // init opens and closes the key file
        const std::string created = "4 vxu_msgq_init: create message queue success 0";
        ROW(vxu_msgq_init(kHandle, "k", kProj), 0, 0, created);  // a namespace's first id
        struct stat st;
        struct msqid_ds ds;
        ASSERT_TRUE(stat("k", &st) == 0 && msgctl(0, IPC_STAT, &ds) == 0);
        EXPECT_TRUE(st.st_mode == 0100766 && st.st_size == 0 && (ds.msg_perm.mode & 0777) == 0766);
        FILE *mni = fopen("/proc/sys/kernel/msgmni", "w");  // no further queue
        ASSERT_TRUE(mni && fputs("0", mni) >= 0 && fclose(mni) == 0);

        int held = 5, got = -1;
        struct {
            long type;
            char text[16];
        } in{}, out{5, "0123456789"}, nine{9, "nine"};
        ROW(vxu_msgq_init(kHandle, "k", kProj), 0, 0, created);
        ROW(vxu_msgq_init(kHandle, "no/k", kProj), -1, ENOENT,
            "1 vxu_msgq_init: create key file no/k failed.");
        ROW((g_ftok_error = EACCES, vxu_msgq_init(kHandle, "k", kProj)), -1, EACCES,
            "1 vxu_msgq_init: ftok error");
        ROW(vxu_msgq_init(kHandle, "k", 1), -1, ENOSPC,
            "1 vxu_msgq_init: create message queue error");
        ROW(vxu_msgq_get(kHandle, &held, "none", 1) || held != 5, 0, 0, "");  // not looked up
        ROW(vxu_msgq_get(kHandle, &got, "k", kProj) || got, 0, 0, "");
        ROW((got = -7, vxu_msgq_get(kHandle, &got, "k", 1) == -1 && got == -1), 1, ENOSPC,
            "4 vxu_msgq_get: msgget:-1");
        ROW((got = -1, vxu_msgq_get(kHandle, &got, "none", kProj)), -1, ENOENT,
            "4 vxu_msgq_get: ftok:-1");
        ROW(vxu_msgq_send(kHandle, 0, &out, 10, 0) || vxu_msgq_send(kHandle, 0, &nine, 5, 0), 0, 0,
            "");
        ROW(vxu_msgq_recv(kHandle, 0, &in, 16, 7, IPC_NOWAIT), -1, ENOMSG,
            "1 vxu_msgq_recv: recv message error(ret=-1,errno=" + std::to_string(ENOMSG) +
                ",type=7,msgqid=0)");
        ROW(vxu_msgq_recv(kHandle, 0, &in, 16, 9, 0) || memcmp(&in, &nine, sizeof in), 0, 0, "");
        ROW(vxu_msgq_recv(kHandle, 0, &in, 10, 0, 0) || memcmp(&in, &out, sizeof in), 0, 0, "");
        ROW(vxu_msgq_deinit(nullptr, 0), 0, 0, "");
        ROW(vxu_msgq_deinit(kHandle, 0), -1, EINVAL, "");
        ROW(vxu_msgq_send(kHandle, 0, &out, 10, 0), -1, EINVAL,
            "4 vxu_msgq_send: msgsnd_err:0, -1, 10, " + std::to_string(EINVAL) + ", " +
                strerror(EINVAL));
        const vxu_test::fds_taken none(vxu_test::leaving_free{0});  // valgrind refuses it
        if (none.ok())
            ROW(vxu_msgq_init(kHandle, "fresh", kProj), -1, EMFILE,
                "1 vxu_msgq_init: create key file fresh failed.");
        EXPECT_NE(0, access("fresh", F_OK)) << "a key file made without a descriptor";
        EXPECT_NE(0, access("none", F_OK)) << "get created a key file";
        unlink("k");
        rmdir(dir);
    });
}

}  // namespace
