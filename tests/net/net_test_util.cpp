#include "net/net_test_util.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

#include "common/test_support.hpp"

namespace vxu_net_test {

void skip_child(const std::string &why)
{
    fprintf(stderr, "SKIPPED: %s\n", why.c_str());
    fflush(stderr);
    _exit(kSkipStatus);
}

int run_in_netns(const std::function<void()> &body, bool private_mounts)
{
    return vxu_test::run_in_child([&] {
        if (unshare(CLONE_NEWNET | (private_mounts ? CLONE_NEWNS : 0)) != 0)
            skip_child(std::string("unshare: ") + strerror(errno));
        // Keep bind mounts from reaching the parent's mount namespace.
        if (private_mounts && mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0)
            skip_child(std::string("private mounts: ") + strerror(errno));
        if (!shell("ip link set lo up"))
            skip_child("cannot bring up loopback with `ip` (iproute2 missing?)");
        body();
    });
}

bool shell(const std::string &command) { return system(command.c_str()) == 0; }

std::string shell_output(const std::string &command)
{
    FILE *p = popen(command.c_str(), "r");
    if (!p)
        return std::string();
    std::string out = vxu_test::read_stream(p);
    pclose(p);
    return out;
}

void write_file(const std::string &path, const std::string &text)
{
    FILE *f = fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, f) << path;
    fputs(text.c_str(), f);
    fclose(f);
}

stdout_capture::stdout_capture()
{
    fflush(stdout);
    char path[] = "/tmp/vxu_stdoutXXXXXX";
    file_ = mkstemp(path);
    EXPECT_GE(file_, 0);
    unlink(path);
    saved_ = dup(STDOUT_FILENO);
    dup2(file_, STDOUT_FILENO);
}

stdout_capture::~stdout_capture() { finish(); }

std::string stdout_capture::finish()
{
    std::string text;
    if (saved_ < 0)
        return text;
    fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    saved_ = -1;
    lseek(file_, 0, SEEK_SET);
    char buf[512];
    ssize_t n;
    while ((n = read(file_, buf, sizeof buf)) > 0)
        text.append(buf, static_cast<size_t>(n));
    close(file_);
    file_ = -1;
    return text;
}

scratch_dir::scratch_dir()
{
    char tmpl[] = "/tmp/vxu_netXXXXXX";
    const char *made = mkdtemp(tmpl);
    EXPECT_NE(nullptr, made);
    path_ = made ? made : "/tmp";
}

scratch_dir::~scratch_dir()
{
    if (path_ != "/tmp")
        shell("rm -rf '" + path_ + "'");
}

std::string scratch_dir::path_of_length(size_t length) const
{
    std::string p = path_ + "/";
    if (p.size() < length)
        p.append(length - p.size(), 'x');
    return p;
}

}  // namespace vxu_net_test
