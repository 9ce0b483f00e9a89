// The message queue family against real System V queues. The test defines
// __vx_log itself, so the library's log lines land in log_lines() instead of
// the stand-in logging library; ftok and msgget are interposed too, so that
// their failures can be forced.
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <vxutil/queues.h>

#include "common/test_support.hpp"
#include "vxlog.h"

namespace {

struct log_line {
    void *handle;
    std::string function;
    int level;
    std::string text;
};

std::vector<log_line> &log_lines()
{
    static std::vector<log_line> lines;
    return lines;
}

// Errors forced on the next call of ftok or msgget (0: call through).
int g_ftok_error = 0;
int g_msgget_error = 0;
int g_ftok_calls = 0;

template <typename Fn>
Fn real(const char *name)
{
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int __vx_log(void *handle, const char *function, int level, const char *format, ...)
{
    char text[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    log_lines().push_back({handle, function ? function : "", level, text});
    // A logging library may well disturb errno; the caller must not see it.
    errno = EBADMSG;
    return 0;
}

extern "C" key_t ftok(const char *path, int proj_id)
{
    ++g_ftok_calls;
    if (g_ftok_error) {
        errno = g_ftok_error;
        g_ftok_error = 0;
        return -1;
    }
    static const auto next = real<key_t (*)(const char *, int)>("ftok");
    return next(path, proj_id);
}

extern "C" int msgget(key_t key, int flags)
{
    if (g_msgget_error) {
        errno = g_msgget_error;
        g_msgget_error = 0;
        return -1;
    }
    static const auto next = real<int (*)(key_t, int)>("msgget");
    return next(key, flags);
}

namespace {

constexpr int kProj = 'v';

struct message {
    long type;
    char payload[16];
};

class MsgQueue : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(nullptr, mkdtemp(dir_));
        log_lines().clear();
        g_ftok_calls = 0;
    }

    void TearDown() override
    {
        for (int id : queues_)
            msgctl(id, IPC_RMID, nullptr);
        for (const std::string &p : files_)
            unlink(p.c_str());
        rmdir(dir_);
    }

    std::string key_file(const char *name)
    {
        files_.push_back(std::string(dir_) + "/" + name);
        return files_.back();
    }

    // init that the fixture cleans up after.
    int init(const std::string &path)
    {
        const int id = vxu_msgq_init(handle_, path.c_str(), kProj);
        if (id >= 0)
            queues_.push_back(id);
        return id;
    }

    void expect_one_line(int level, const char *function, const std::string &text)
    {
        ASSERT_EQ(1u, log_lines().size()) << "last: " << log_lines().back().text;
        const log_line &l = log_lines()[0];
        EXPECT_EQ(handle_, l.handle);
        EXPECT_EQ(function, l.function);
        EXPECT_EQ(level, l.level);
        EXPECT_EQ(text, l.text);
        log_lines().clear();
    }

    static message make(long type, const char *text)
    {
        message m{};
        m.type = type;
        strncpy(m.payload, text, sizeof m.payload);
        return m;
    }

    void *handle_ = reinterpret_cast<void *>(0x5a5a);
    char dir_[32] = "/tmp/vxu_msgq_XXXXXX";
    std::vector<int> queues_;
    std::vector<std::string> files_;
    vxu_test::fd_leak_check no_leaks_;  // a key file is opened and closed again
};

TEST_F(MsgQueue, InitCreatesTheKeyFileAndTheQueue)
{
    const std::string path = key_file("new.key");
    const mode_t mask = umask(0);
    umask(mask);

    const int id = init(path);
    ASSERT_GE(id, 0);
    expect_one_line(4, "vxu_msgq_init", "create message queue success " + std::to_string(id));

    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0, st.st_size);
    EXPECT_EQ(0766 & ~mask, st.st_mode & 0777);
    struct msqid_ds ds;
    ASSERT_EQ(0, msgctl(id, IPC_STAT, &ds));
    EXPECT_EQ(0766u, ds.msg_perm.mode & 0777u);

    // Same key file and project: the same queue.
    EXPECT_EQ(id, vxu_msgq_init(handle_, path.c_str(), kProj));
    // Another project number names another queue.
    const int other = vxu_msgq_init(handle_, path.c_str(), kProj + 1);
    ASSERT_GE(other, 0);
    queues_.push_back(other);
    EXPECT_NE(id, other);
}

TEST_F(MsgQueue, InitLogsEachFailure)
{
    const std::string nowhere = std::string(dir_) + "/missing/dir/k";
    errno = 0;
    EXPECT_EQ(-1, vxu_msgq_init(handle_, nowhere.c_str(), kProj));
    EXPECT_EQ(ENOENT, errno) << "errno of the failed open, untouched by logging";
    expect_one_line(1, "vxu_msgq_init", "create key file " + nowhere + " failed.");

    const std::string path = key_file("k");
    g_ftok_error = EACCES;
    EXPECT_EQ(-1, vxu_msgq_init(handle_, path.c_str(), kProj));
    EXPECT_EQ(EACCES, errno);
    expect_one_line(1, "vxu_msgq_init", "ftok error");

    g_msgget_error = ENOSPC;
    EXPECT_EQ(-1, vxu_msgq_init(handle_, path.c_str(), kProj));
    EXPECT_EQ(ENOSPC, errno);
    expect_one_line(1, "vxu_msgq_init", "create message queue error");
}

TEST_F(MsgQueue, InitWithoutADescriptorCreatesNoKeyFile)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    const std::string fresh = std::string(dir_) + "/fresh.key";
    void *const handle = handle_;  // the sanitizer's type checks need descriptors
    EXPECT_IN_CHILD([&] {
        {
            vxu_test::fds_taken none(vxu_test::leaving_free{0});
            ASSERT_TRUE(none.ok());
            EXPECT_EQ(-1, vxu_msgq_init(handle, fresh.c_str(), kProj));
            EXPECT_EQ(EMFILE, errno);
        }
        expect_one_line(1, "vxu_msgq_init", "create key file " + fresh + " failed.");
    });
    EXPECT_NE(0, access(fresh.c_str(), F_OK));
}

TEST_F(MsgQueue, GetOpensOnlyWhatIsNotOpenYet)
{
    // An identifier already held: nothing is looked up, not even the file.
    for (int held : {0, 5}) {
        const int before = held;
        EXPECT_EQ(0, vxu_msgq_get(handle_, &held, "/nonexistent/key", kProj));
        EXPECT_EQ(before, held);
    }
    EXPECT_EQ(0, g_ftok_calls);
    EXPECT_TRUE(log_lines().empty());

    const std::string path = key_file("k");
    const int id = init(path);
    ASSERT_GE(id, 0);
    log_lines().clear();
    int got = -1;
    EXPECT_EQ(0, vxu_msgq_get(handle_, &got, path.c_str(), kProj));
    EXPECT_EQ(id, got);
    EXPECT_TRUE(log_lines().empty());

    // A failing msgget leaves its own result in the variable.
    got = -7;
    g_msgget_error = ENOSPC;
    EXPECT_EQ(-1, vxu_msgq_get(handle_, &got, path.c_str(), kProj));
    EXPECT_EQ(-1, got);
    EXPECT_EQ(ENOSPC, errno);
    expect_one_line(4, "vxu_msgq_get", "msgget:-1");

    // Unlike init, get does not create a missing key file.
    const std::string absent = key_file("absent");
    got = -1;
    EXPECT_EQ(-1, vxu_msgq_get(handle_, &got, absent.c_str(), kProj));
    EXPECT_EQ(-1, got);
    expect_one_line(4, "vxu_msgq_get", "ftok:-1");
    EXPECT_NE(0, access(absent.c_str(), F_OK));
    EXPECT_EQ(-1, vxu_msgq_get(handle_, nullptr, path.c_str(), kProj));
}

TEST_F(MsgQueue, SendAndReceiveByType)
{
    const int id = init(key_file("k"));
    ASSERT_GE(id, 0);
    log_lines().clear();

    const message five = make(5, "0123456789");
    const message nine = make(9, "nine");
    ASSERT_EQ(0, vxu_msgq_send(handle_, id, &five, 10, IPC_NOWAIT));
    ASSERT_EQ(0, vxu_msgq_send(handle_, id, &nine, 5, IPC_NOWAIT));

    // Type 9 is taken out ahead of the older type 5; the result is 0, not
    // the received size.
    message got{};
    EXPECT_EQ(0, vxu_msgq_recv(handle_, id, &got, sizeof got.payload, 9, IPC_NOWAIT));
    EXPECT_EQ(9, got.type);
    EXPECT_STREQ("nine", got.payload);

    // Too small a buffer refuses the message and leaves it queued.
    got = message{};
    EXPECT_EQ(-1, vxu_msgq_recv(handle_, id, &got, 4, 0, IPC_NOWAIT));
    EXPECT_EQ(E2BIG, errno);
    expect_one_line(1, "vxu_msgq_recv",
                    "recv message error(ret=-1,errno=" + std::to_string(E2BIG) +
                        ",type=0,msgqid=" + std::to_string(id) + ")");

    EXPECT_EQ(0, vxu_msgq_recv(handle_, id, &got, 10, 0, IPC_NOWAIT));
    EXPECT_EQ(5, got.type);
    EXPECT_EQ(0, memcmp(got.payload, "0123456789", 10));

    // A message with no payload is a success too.
    const message bare = make(4, "");
    ASSERT_EQ(0, vxu_msgq_send(handle_, id, &bare, 0, IPC_NOWAIT));
    EXPECT_EQ(0, vxu_msgq_recv(handle_, id, &got, sizeof got.payload, 4, IPC_NOWAIT));
    EXPECT_EQ(4, got.type);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MsgQueue, ReceiveFailuresAreLogged)
{
    const int id = init(key_file("k"));
    ASSERT_GE(id, 0);
    log_lines().clear();
    const std::string tail = ",msgqid=" + std::to_string(id) + ")";

    message got{};
    EXPECT_EQ(-1, vxu_msgq_recv(handle_, id, &got, sizeof got.payload, 7, IPC_NOWAIT));
    EXPECT_EQ(ENOMSG, errno);
    expect_one_line(1, "vxu_msgq_recv",
                    "recv message error(ret=-1,errno=" + std::to_string(ENOMSG) + ",type=7" + tail);

    // A negative capacity must be refused, not widened into a huge copy.
    // (valgrind checks the buffer against the unsigned size before the
    // kernel refuses it.)
    if (vxu_test::under_valgrind())
        return;
    const message m = make(3, "x");
    ASSERT_EQ(0, vxu_msgq_send(handle_, id, &m, 2, IPC_NOWAIT));
    EXPECT_EQ(-1, vxu_msgq_recv(handle_, id, &got, -1, 0, IPC_NOWAIT));
    expect_one_line(1, "vxu_msgq_recv",
                    "recv message error(ret=-1,errno=" + std::to_string(EINVAL) + ",type=0" + tail);
}

TEST_F(MsgQueue, DeinitRemovesTheQueueOnce)
{
    const int id = init(key_file("k"));
    ASSERT_GE(id, 0);
    log_lines().clear();

    EXPECT_EQ(0, vxu_msgq_deinit(handle_, id));
    struct msqid_ds ds;
    EXPECT_EQ(-1, msgctl(id, IPC_STAT, &ds));
    EXPECT_EQ(-1, vxu_msgq_deinit(nullptr, id));
    EXPECT_TRUE(log_lines().empty()) << "deinit logs nothing";

    // Sending to a queue that is gone fails with every detail in the log.
    const message m = make(1, "0123456789");
    EXPECT_EQ(-1, vxu_msgq_send(handle_, id, &m, 10, IPC_NOWAIT));
    EXPECT_EQ(EINVAL, errno);
    expect_one_line(4, "vxu_msgq_send",
                    "msgsnd_err:" + std::to_string(id) + ", -1, 10, " + std::to_string(EINVAL) +
                        ", " + strerror(EINVAL));
}

TEST_F(MsgQueue, ExchangesMessagesBetweenProcesses)
{
    const std::string path = key_file("k");
    const int id = init(path);
    ASSERT_GE(id, 0);
    const message ping = make(1, "ping");
    ASSERT_EQ(0, vxu_msgq_send(handle_, id, &ping, 5, 0));

    // The child reaches the queue through the key file alone.
    EXPECT_IN_CHILD([&] {
        int child_id = -1;
        ASSERT_EQ(0, vxu_msgq_get(nullptr, &child_id, path.c_str(), kProj));
        message got{};
        ASSERT_EQ(0, vxu_msgq_recv(nullptr, child_id, &got, sizeof got.payload, 1, 0));
        ASSERT_STREQ("ping", got.payload);
        const message pong = make(2, "pong");
        ASSERT_EQ(0, vxu_msgq_send(nullptr, child_id, &pong, 5, 0));
    });

    message got{};
    ASSERT_EQ(0, vxu_msgq_recv(handle_, id, &got, sizeof got.payload, 2, IPC_NOWAIT));
    EXPECT_STREQ("pong", got.payload);
}

}  // namespace
