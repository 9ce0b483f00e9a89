#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <vxutil/net.h>

#include "common/test_support.hpp"
#include "net/net_test_util.hpp"

namespace {

using vxu_net_test::skip_child;
using vxu_net_test::stdout_capture;
using vxu_test::fd_leak_check;

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// Replaces an /etc file for this mount namespace only.
void mount_over(const char *target, const std::string &dir, const char *name,
                const std::string &text)
{
    const std::string file = dir + "/" + name;
    vxu_net_test::write_file(file, text);
    if (mount(file.c_str(), target, "none", MS_BIND, nullptr) != 0)
        skip_child(std::string("cannot bind-mount over ") + target + ": " + strerror(errno));
}

TEST(HostLookup, LiteralsAndFailures)
{
    {
        fd_leak_check leaks;
        stdout_capture out;
        const char *text = vexmar_gethostbyurl("127.0.0.1");
        ASSERT_NE(nullptr, text);
        EXPECT_STREQ("127.0.0.1", text);
        const std::string printed = out.finish();
        EXPECT_EQ(0u, printed.find("===host name :127.0.0.1\n====res:0x")) << printed;
        EXPECT_EQ('\n', printed.back());
    }
    {
        fd_leak_check leaks;
        stdout_capture out;
        EXPECT_EQ(nullptr, vexmar_gethostbyurl(nullptr));
        const std::string expected =
            "====error:" + std::to_string(EAI_NONAME) + "," + gai_strerror(EAI_NONAME);
        EXPECT_EQ(expected, out.finish()) << "no host line, no line end";
    }
    {
        fd_leak_check leaks;
        stdout_capture out;
        EXPECT_EQ(nullptr, vexmar_gethostbyurl("::1")) << "IPv6 only";
        EXPECT_TRUE(contains(out.finish(), "====res:"));
    }
}

TEST(HostLookup, SkipsIpv6EntriesAheadOfIpv4)
{
    vxu_net_test::scratch_dir dir;  // removed once the child's mounts are gone
    EXPECT_IN_NETNS(
        [&dir] {
            mount_over("/etc/hosts", dir.path(), "hosts",
                       "fd00::5 mixed.test\n10.9.8.7 mixed.test\nfd00::6 v6only.test\n");
            addrinfo hints{};
            hints.ai_flags = AI_PASSIVE;
            hints.ai_socktype = SOCK_DGRAM;
            addrinfo *list = nullptr;
            ASSERT_EQ(0, getaddrinfo("mixed.test", nullptr, &hints, &list));
            const int first_family = list->ai_family;
            freeaddrinfo(list);
            EXPECT_EQ(AF_INET6, first_family) << "the resolver should list the IPv6 entry first";

            stdout_capture out;
            const char *text = vexmar_gethostbyurl("mixed.test");
            EXPECT_STREQ("10.9.8.7", text ? text : "(null)");
            EXPECT_EQ(nullptr, vexmar_gethostbyurl("v6only.test"));
            const std::string printed = out.finish();
            EXPECT_TRUE(contains(printed, "===host name :mixed.test\n====res:")) << printed;
            EXPECT_TRUE(contains(printed, "===host name :v6only.test\n====res:")) << printed;
        },
        true);
}

// dnsmasq on 127.0.0.1:53 of the current namespace with records of our own.
class dns_server {
public:
    dns_server()
    {
        const char *binary = nullptr;
        for (const char *p : {"/usr/sbin/dnsmasq", "/sbin/dnsmasq", "/usr/bin/dnsmasq"}) {
            if (access(p, X_OK) == 0)
                binary = p;
        }
        if (!binary)
            skip_child("dnsmasq is not installed (Debian package dnsmasq-base)");
        pid_ = fork();
        if (pid_ == 0) {
            execl(binary, "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--no-resolv",
                  "--no-hosts", "--pid-file=", "--user=root", "--listen-address=127.0.0.1",
                  "--bind-interfaces", "--port=53", "--local=/test/", "--log-facility=/dev/null",
                  "--host-record=two.test,10.1.1.1", "--host-record=two.test,10.1.1.2",
                  "--host-record=six.test,fd00::6", static_cast<char *>(nullptr));
            _exit(127);
        }
        if (pid_ < 0 || !wait_listening())
            skip_child("dnsmasq did not start");
    }
    ~dns_server()
    {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }

private:
    // The server is up once its UDP port is taken.
    bool wait_listening()
    {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(53);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (int i = 0; i < 100; ++i) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return false;
            }
            const int probe = socket(AF_INET, SOCK_DGRAM, 0);
            const int rc = bind(probe, reinterpret_cast<sockaddr *>(&a), sizeof a);
            const int err = errno;
            close(probe);
            if (rc != 0 && err == EADDRINUSE)
                return true;
            usleep(50 * 1000);
        }
        return false;
    }

    pid_t pid_ = -1;
};

std::string dotted(const in_addr &a) { return inet_ntoa(a); }

TEST(AdnsResolver, AgainstALocalServer)
{
    EXPECT_IN_NETNS([] {
        dns_server server;
        const in_addr untouched = {htonl(0x01020304)};
        fd_leak_check leaks;

        // sortlist decides which record comes first in the answer.
        in_addr out = untouched;
        EXPECT_EQ(0, vexmar_resolver_dns("nameserver 127.0.0.1\nsortlist 10.1.1.2/32\n", "two.test",
                                         &out));
        EXPECT_EQ("10.1.1.2", dotted(out));
        EXPECT_EQ(0, vexmar_resolver_dns("nameserver 127.0.0.1\nsortlist 10.1.1.1/32\n", "two.test",
                                         &out));
        EXPECT_EQ("10.1.1.1", dotted(out));

        out = untouched;
        EXPECT_EQ(0, vexmar_resolver_dns("nameserver 127.0.0.1", "six.test", &out))
            << "no A record";
        EXPECT_EQ(untouched.s_addr, out.s_addr);
        EXPECT_EQ(0, vexmar_resolver_dns("nameserver 127.0.0.1", "missing.test", &out));
        EXPECT_EQ(untouched.s_addr, out.s_addr);

        stdout_capture captured;
        EXPECT_EQ(-1, vexmar_resolver_dns("nameserver not-an-address", "two.test", &out));
        const std::string printed = captured.finish();
        EXPECT_TRUE(contains(printed, "==adns_init_strcfg failure====\n")) << printed;
        EXPECT_EQ(untouched.s_addr, out.s_addr);
        EXPECT_EQ(-1, vexmar_resolver_dns("nameserver 127.0.0.1", nullptr, &out));
    });
}

TEST(AdnsResolver, SystemConfiguration)
{
    vxu_net_test::scratch_dir dir;  // removed once the child's mounts are gone
    EXPECT_IN_NETNS(
        [&dir] {
            dns_server server;
            mount_over("/etc/resolv.conf", dir.path(), "resolv.conf", "nameserver 127.0.0.1\n");
            // The environment is not consulted: this text would fail the init.
            setenv("RES_CONF_TEXT", "nameserver not-an-address", 1);
            in_addr out{};
            {
                fd_leak_check leaks;
                stdout_capture captured;
                EXPECT_EQ(0, vexmar_resolver_dns(nullptr, "two.test", &out));
                const std::string printed = captured.finish();
                EXPECT_TRUE(printed.empty()) << "diagnostics go to standard error: " << printed;
            }
            EXPECT_TRUE(dotted(out) == "10.1.1.1" || dotted(out) == "10.1.1.2") << dotted(out);
        },
        true);
}

TEST(AdnsResolver, InitFailuresArePrinted)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        stdout_capture captured;
        in_addr out{};
        {
            // With no descriptor left adns cannot make its socket.
            vxu_test::fds_taken none(vxu_test::leaving_free{0});
            ASSERT_TRUE(none.ok());
            EXPECT_EQ(-1, vexmar_resolver_dns(nullptr, "two.test", &out));
            EXPECT_EQ(-1, vexmar_resolver_dns("nameserver 127.0.0.1", "two.test", &out));
            EXPECT_EQ(nullptr, vexmar_gethostbyurl("localhost")) << "the hosts file cannot be read";
        }
        const std::string printed = captured.finish();
        EXPECT_EQ(0u, printed.find("===adns init failure====\n")) << printed;
        EXPECT_TRUE(contains(printed, "==adns_init_strcfg failure====\n")) << printed;
    });
}

}  // namespace
