// System V message queues named by a key file and a project number. Thin
// wrappers over ftok/msgget/msgsnd/msgrcv/msgctl: failures are logged through
// the device logging library and nothing is retried.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <vxutil/queues.h>

#include "vxlog.h"

namespace {

constexpr int kLogError = 1;
constexpr int kLogWarning = 4;
constexpr size_t kErrorTextSize = 128;  // longer than any glibc error text

// Key files and queues alike: owner rwx, group and others rw.
constexpr mode_t kKeyFileMode = 0766;
constexpr int kQueueFlags = IPC_CREAT | 0766;

// Logging must not change the errno that the failing call left for the
// caller; one of these in the failing branch puts it back on return.
class errno_keep {
public:
    errno_keep() : saved_(errno) {}
    ~errno_keep() { errno = saved_; }
    errno_keep(const errno_keep &) = delete;
    errno_keep &operator=(const errno_keep &) = delete;

private:
    int saved_;
};

// ftok needs an existing file; one that is missing is created empty.
bool ensure_key_file(const char *path)
{
    if (access(path, F_OK) == 0)
        return true;
    const int fd = open(path, O_RDWR | O_CREAT, kKeyFileMode);
    if (fd < 0)
        return false;
    close(fd);
    return true;
}

}  // namespace

extern "C" {

VXU_API int vxu_msgq_init(void *log, const char *key_path, int proj_id)
{
    if (!key_path || !ensure_key_file(key_path)) {
        const errno_keep keep;
        __vx_log(log, "vxu_msgq_init", kLogError, "create key file %s failed.",
                 key_path ? key_path : "(null)");
        return -1;
    }
    const key_t key = ftok(key_path, proj_id);
    if (key == -1) {
        const errno_keep keep;
        __vx_log(log, "vxu_msgq_init", kLogError, "ftok error");
        return -1;
    }
    const int msqid = msgget(key, kQueueFlags);
    if (msqid < 0) {
        const errno_keep keep;
        __vx_log(log, "vxu_msgq_init", kLogError, "create message queue error");
        return -1;
    }
    __vx_log(log, "vxu_msgq_init", kLogWarning, "create message queue success %d", msqid);
    return msqid;
}

VXU_API int vxu_msgq_deinit(void *log, int msqid)
{
    (void)log;
    struct msqid_ds status;
    if (msgctl(msqid, IPC_STAT, &status) < 0)
        return -1;
    return msgctl(msqid, IPC_RMID, nullptr) < 0 ? -1 : 0;
}

VXU_API int vxu_msgq_get(void *log, int *msqid, const char *key_path, int proj_id)
{
    if (!msqid)
        return -1;
    if (*msqid >= 0)
        return 0;
    // Unlike init, a missing key file is not created: ftok reports it.
    const key_t key = key_path ? ftok(key_path, proj_id) : -1;
    if (key == -1) {
        const errno_keep keep;
        __vx_log(log, "vxu_msgq_get", kLogWarning, "ftok:%d", static_cast<int>(key));
        return -1;
    }
    *msqid = msgget(key, kQueueFlags);
    if (*msqid < 0) {
        const errno_keep keep;
        __vx_log(log, "vxu_msgq_get", kLogWarning, "msgget:%d", *msqid);
        return -1;
    }
    return 0;
}

VXU_API int vxu_msgq_send(void *log, int msqid, const void *msgp, unsigned int msgsz, int msgflg)
{
    const int rc = msgsnd(msqid, msgp, msgsz, msgflg);
    if (rc == 0)
        return 0;
    const errno_keep keep;
    const int err = errno;
    // Senders run on many threads: the error text goes into a buffer of
    // this call's own (GNU strerror_r returns it, or a static text).
    char text[kErrorTextSize];
    __vx_log(log, "vxu_msgq_send", kLogWarning, "msgsnd_err:%d, %d, %d, %d, %s", msqid, rc,
             static_cast<int>(msgsz), err, strerror_r(err, text, sizeof text));
    return rc;
}

VXU_API int vxu_msgq_recv(void *log, int msqid, void *msgp, int msgsz, long msgtyp, int msgflg)
{
    // A negative capacity widens to a huge size_t, which msgrcv refuses.
    const ssize_t rc = msgrcv(msqid, msgp, static_cast<size_t>(msgsz), msgtyp, msgflg);
    if (rc >= 0)
        return 0;
    const errno_keep keep;
    const int err = errno;
    __vx_log(log, "vxu_msgq_recv", kLogError,
             "recv message error(ret=%d,errno=%d,type=%d,msgqid=%d)", static_cast<int>(rc), err,
             static_cast<int>(msgtyp), msqid);
    return static_cast<int>(rc);
}

}  // extern "C"
