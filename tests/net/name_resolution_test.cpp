#include <arpa/inet.h>
#include <netdb.h>
#include <signal.h>

#include <fstream>
#include <regex>
#include <tuple>

#include <vxutil/net.h>

#include "net/sandbox.hpp"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

// Replaces an /etc file inside the sandbox.
void mount_over(const char *target, const char *text)
{
    const std::string copy = std::string("/tmp/") + basename(target);
    std::ofstream(copy) << text;
    if (mount(copy.c_str(), target, nullptr, MS_BIND, nullptr) != 0)
        vxu_net_test::skip_child(std::string("cannot bind-mount over ") + target);
}

// dnsmasq on 127.0.0.1:53 of the sandbox with records of its own; it answers
// once the start command has returned, and is stopped by its pid.
struct dns_server {
    pid_t pid = 0;
    dns_server()
    {
        if (!vxu_net_test::shell("dnsmasq --conf-file=/dev/null --no-resolv --no-hosts "
                                 "--user=root --pid-file=/tmp/dns.pid --listen-address=127.0.0.1 "
                                 "--bind-interfaces --local=/test/ --log-facility=/dev/null "
                                 "--host-record=two.test,10.1.1.1 --host-record=two.test,10.1.1.2 "
                                 "--host-record=six.test,fd00::6"))
            vxu_net_test::skip_child("dnsmasq (package dnsmasq-base) did not start");
        std::ifstream("/tmp/dns.pid") >> pid;
    }
    ~dns_server()
    {
        if (pid > 0)
            kill(pid, SIGTERM);
    }
};

// The result and what was printed, the list's address shown as P.
std::string lookup(const char *host)
{
    CaptureStdout();
    const char *text = vexmar_gethostbyurl(host);
    const std::string printed =
        std::regex_replace(GetCapturedStdout(), std::regex("0x[0-9a-f]+"), "P");
    return std::string(text ? text : "(null)") + " | " + printed;
}

// Entries of other families ahead of the first IPv4 one are passed over.
TEST(NameResolution, SystemResolver)
{
    EXPECT_IN_SANDBOX([] {
        mount_over("/etc/hosts", "fd00::5 mixed.test\n10.9.8.7 mixed.test\nfd00::6 v6only.test\n");
        vxu_test::fd_leak_check leaks;
        EXPECT_EQ("127.0.0.1 | ===host name :127.0.0.1\n====res:P\n", lookup("127.0.0.1"));
        EXPECT_EQ("10.9.8.7 | ===host name :mixed.test\n====res:P\n", lookup("mixed.test"));
        EXPECT_EQ("(null) | ===host name :v6only.test\n====res:P\n", lookup("v6only.test"));
        EXPECT_EQ("(null) | ===host name :::1\n====res:P\n", lookup("::1"));
        EXPECT_EQ("(null) | ====error:" + std::to_string(EAI_NONAME) + "," +
                      gai_strerror(EAI_NONAME),
                  lookup(nullptr));
    });
}

// With a configuration text of its own, or the system's (the environment
// ignored, diagnostics on standard error). The answer's status is not
// examined: a name without A records leaves the output alone.
TEST(NameResolution, Adns)
{
    EXPECT_IN_SANDBOX([] {
        dns_server server;
        mount_over("/etc/resolv.conf", "nameserver 127.0.0.1\nsortlist 10.1.1.2/32\n");
        setenv("RES_CONF_TEXT", "nameserver not-an-address", 1);
        vxu_test::fd_leak_check leaks;
        // clang-format off
        const std::tuple<const char *, const char *, const char *, const char *> rows[] = {
            {"nameserver 127.0.0.1\nsortlist 10.1.1.2/32", "two.test", "0 10.1.1.2", ""},
            {"nameserver 127.0.0.1\nsortlist 10.1.1.1/32", "two.test", "0 10.1.1.1", ""},
            {"nameserver 127.0.0.1", "six.test", "0 1.2.3.4", ""},
            {"nameserver 127.0.0.1", "missing.test", "0 1.2.3.4", ""},
            {"nameserver not-an-address", "two.test", "-1 1.2.3.4", "==adns_init_strcfg failure====\n"},
            {"nameserver 127.0.0.1", nullptr, "-1 1.2.3.4", ""}, {nullptr, "two.test", "0 10.1.1.2", ""}};
        // clang-format on
        for (const auto &[config, host, want, line] : rows) {
            in_addr out = {htonl(0x01020304)};
            CaptureStdout();
            const int rc = vexmar_resolver_dns(config, host, &out);
            const std::string printed = GetCapturedStdout();
            EXPECT_EQ(want, std::to_string(rc) + " " + inet_ntoa(out)) << config;
            EXPECT_NE(std::string::npos, printed.find(line)) << printed;
            EXPECT_TRUE(config || printed.empty()) << "diagnostics go to standard error";
        }
    });
}

TEST(NameResolution, FailsWithoutAFreeDescriptor)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        in_addr out{};
        CaptureStdout();
        {
            vxu_test::fds_taken none(vxu_test::leaving_free{0});
            ASSERT_TRUE(none.ok());
            EXPECT_EQ(-1, vexmar_resolver_dns(nullptr, "two.test", &out));
            EXPECT_EQ(-1, vexmar_resolver_dns("nameserver 127.0.0.1", "two.test", &out));
            EXPECT_EQ(nullptr, vexmar_gethostbyurl("localhost")) << "the hosts file cannot be read";
        }
        const std::string printed = GetCapturedStdout();
        EXPECT_EQ(0u, printed.find("===adns init failure====\n")) << printed;
        EXPECT_NE(std::string::npos, printed.find("==adns_init_strcfg failure====\n")) << printed;
    });
}

}  // namespace
