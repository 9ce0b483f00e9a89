/*
 * A minimal daemon skeleton: one event loop on the main thread, a worker
 * thread that feeds it through a socket pair, and a time budget.
 */
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vxutil/vxutil.h>

struct worker {
    int fd;    /* sending end of the socket pair */
    int lines; /* how many lines to send */
};

/* Worker thread: sends one line every 100 ms, then hangs up. */
static void *worker_main(void *arg)
{
    struct worker *w = arg;
    char line[32];
    int i;

    for (i = 1; i <= w->lines; i++) {
        int n = snprintf(line, sizeof line, "tick %d\n", i);
        if (write(w->fd, line, (size_t)n) != n)
            break;
        vxu_os_wait(0, 100000);
    }
    close(w->fd);
    return NULL;
}

struct stats {
    int reads;
    int bytes;
    int closed;
};

/* Loop callback: runs on the loop thread whenever the socket is readable. */
static void on_readable(int fd, int events, void *arg)
{
    struct stats *st = arg;
    char buf[256];
    ssize_t n = read(fd, buf, sizeof buf - 1);

    (void)events;
    if (n <= 0) {
        /* Peer closed: stop watching, or select would report it forever. */
        printf("[loop] fd %d closed by the worker\n", fd);
        vxu_loop_remove(fd);
        st->closed = 1;
        return;
    }
    buf[n] = '\0';
    st->reads++;
    st->bytes += (int)n;
    printf("[loop] fd %d: %s", fd, buf);
}

int main(void)
{
    struct worker w;
    struct stats st;
    int sv[2];
    uint64_t start;
    int count;

    memset(&st, 0, sizeof st);
    if (vxu_loop_init(0) != 0 || socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
        perror("setup");
        return 1;
    }
    if (vxu_loop_add(sv[0], VXU_LOOP_EV_READ, on_readable, &st) != 0) {
        fprintf(stderr, "vxu_loop_add failed\n");
        return 1;
    }

    w.fd = sv[1];
    w.lines = 5;
    if (vxu_thread_create(worker_main, &w) == 0) {
        fprintf(stderr, "vxu_thread_create failed\n");
        return 1;
    }

    start = vxu_com_get_uptime_ms();
    printf("[main] running the loop for 1000 ms\n");
    count = vxu_loop_run(1000);
    printf("[main] loop returned %d after %llu ms: %d reads, %d bytes, worker %s\n", count,
           (unsigned long long)(vxu_com_get_uptime_ms() - start), st.reads, st.bytes,
           st.closed ? "finished" : "still running");
    if (!st.closed)
        vxu_loop_remove(sv[0]);
    close(sv[0]);
    return count > 0 ? 0 : 1;
}
