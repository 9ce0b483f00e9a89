// Local IPC round trips and address/MAC text conversions, each beside the
// same work written with plain system and libc calls.
#include <arpa/inet.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include <benchmark/benchmark.h>

#include <vxutil/net.h>

namespace {

// An echo server on a Unix stream endpoint, one connection at a time.
class echo_server {
public:
    echo_server()
    {
        char dir[] = "/tmp/vxu_bench_netXXXXXX";
        if (!mkdtemp(dir))
            abort();
        dir_ = dir;
        path_ = dir_ + "/echo.sock";
        fd_ = vxu_net_ipc_server(path_.c_str());
        if (fd_ < 0 || pthread_create(&thread_, nullptr, serve, this) != 0)
            abort();
    }
    ~echo_server()
    {
        shutdown(fd_, SHUT_RDWR);  // wakes accept
        pthread_join(thread_, nullptr);
        close(fd_);
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }
    const char *path() const { return path_.c_str(); }

private:
    static void *serve(void *arg)
    {
        auto *self = static_cast<echo_server *>(arg);
        char buf[256];
        for (;;) {
            const int peer = accept(self->fd_, nullptr, nullptr);
            if (peer < 0)
                return nullptr;
            const ssize_t n = read(peer, buf, sizeof buf);
            if (n > 0 && write(peer, buf, static_cast<size_t>(n)) != n)
                abort();
            close(peer);
        }
    }

    std::string dir_, path_;
    int fd_ = -1;
    pthread_t thread_{};
};

constexpr char kCommand[] = "get status";

void BM_IpcRoundTrip_Library(benchmark::State &state)
{
    echo_server server;
    char reply[64];
    for (auto _ : state) {
        const int fd = vxu_net_ipc_client(server.path());
        if (fd < 0 || vxu_net_send(fd, kCommand, sizeof kCommand) != 0 ||
            vxu_net_recv(fd, reply, sizeof reply) != sizeof kCommand)
            state.SkipWithError("round trip failed");
        close(fd);
    }
}

// Hand-written client; check_exists adds the same existence test that the
// library makes before creating its socket.
void plain_round_trips(benchmark::State &state, bool check_exists)
{
    echo_server server;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof addr.sun_path, "%s", server.path());
    char reply[64];
    for (auto _ : state) {
        if (check_exists && access(server.path(), F_OK) != 0)
            state.SkipWithError("endpoint missing");
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
            write(fd, kCommand, sizeof kCommand) != sizeof kCommand ||
            read(fd, reply, sizeof reply) != sizeof kCommand)
            state.SkipWithError("round trip failed");
        close(fd);
    }
}

void BM_IpcRoundTrip_Plain(benchmark::State &state) { plain_round_trips(state, false); }
void BM_IpcRoundTrip_PlainWithExistenceTest(benchmark::State &state)
{
    plain_round_trips(state, true);
}

const in_addr kV4 = {htonl(0xc0a80afe)};  // 192.168.10.254

void BM_Ipv4ToText_Library(benchmark::State &state)
{
    char buf[INET_ADDRSTRLEN];
    for (auto _ : state) {
        benchmark::DoNotOptimize(vxu_net_ipstr(&kV4, buf, sizeof buf));
        benchmark::ClobberMemory();
    }
}

void BM_Ipv4ToText_Plain(benchmark::State &state)
{
    char buf[INET_ADDRSTRLEN];
    for (auto _ : state) {
        benchmark::DoNotOptimize(inet_ntop(AF_INET, &kV4, buf, sizeof buf));
        benchmark::ClobberMemory();
    }
}

void BM_Ipv6ToText_Library(benchmark::State &state)
{
    in6_addr v6;
    inet_pton(AF_INET6, "2001:db8:0:1::ab:cd", &v6);
    for (auto _ : state)
        benchmark::DoNotOptimize(vexmar_ipv6_ntop(v6));
}

void BM_Ipv6ToText_Plain(benchmark::State &state)
{
    in6_addr v6;
    inet_pton(AF_INET6, "2001:db8:0:1::ab:cd", &v6);
    char buf[INET6_ADDRSTRLEN];
    for (auto _ : state) {
        benchmark::DoNotOptimize(inet_ntop(AF_INET6, &v6, buf, sizeof buf));
        benchmark::ClobberMemory();
    }
}

void BM_TextToIpv4_Library(benchmark::State &state)
{
    in_addr out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(vxu_net_strip("192.168.10.254", &out));
        benchmark::ClobberMemory();
    }
}

void BM_TextToIpv4_Plain(benchmark::State &state)
{
    in_addr out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(inet_pton(AF_INET, "192.168.10.254", &out));
        benchmark::ClobberMemory();
    }
}

void BM_DottedQuadCheck_Library(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(vexmar_ipv4_check("192.168.10.254"));
}

void BM_DottedQuadCheck_Plain(benchmark::State &state)
{
    int a, b, c, d;
    char rest[64];
    for (auto _ : state) {
        rest[0] = '\0';
        benchmark::DoNotOptimize(sscanf("192.168.10.254", "%d.%d.%d.%d%63s", &a, &b, &c, &d, rest));
        benchmark::ClobberMemory();
    }
}

void BM_MacToText_Library(benchmark::State &state)
{
    const uint8_t mac[6] = {0x00, 0x1b, 0x2c, 0xd3, 0xe4, 0xff};
    char buf[18];
    for (auto _ : state) {
        benchmark::DoNotOptimize(vxu_net_macstr(mac, 6, buf, sizeof buf));
        benchmark::ClobberMemory();
    }
}

void BM_MacToText_Plain(benchmark::State &state)
{
    const uint8_t mac[6] = {0x00, 0x1b, 0x2c, 0xd3, 0xe4, 0xff};
    char buf[18];
    for (auto _ : state) {
        benchmark::DoNotOptimize(snprintf(buf, sizeof buf, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0],
                                          mac[1], mac[2], mac[3], mac[4], mac[5]));
        benchmark::ClobberMemory();
    }
}

constexpr char kMacText[] = "00:1b:2c:D3:e4:FF";

void BM_TextToMac_StrMac(benchmark::State &state)
{
    uint8_t mac[6];
    for (auto _ : state) {
        benchmark::DoNotOptimize(vxu_net_strmac(kMacText, mac, sizeof mac));
        benchmark::ClobberMemory();
    }
}

void BM_TextToMac_MacToChar(benchmark::State &state)
{
    uint8_t mac[6];
    for (auto _ : state) {
        benchmark::DoNotOptimize(vexmar_mac_to_char(kMacText, mac));
        benchmark::ClobberMemory();
    }
}

void BM_TextToMac_Plain(benchmark::State &state)
{
    unsigned v[6];
    uint8_t mac[6];
    for (auto _ : state) {
        benchmark::DoNotOptimize(sscanf(kMacText, "%02x:%02x:%02x:%02x:%02x:%02x", &v[0], &v[1],
                                        &v[2], &v[3], &v[4], &v[5]));
        for (int i = 0; i < 6; ++i)
            mac[i] = static_cast<uint8_t>(v[i]);
        benchmark::DoNotOptimize(mac);
        benchmark::ClobberMemory();
    }
}

}  // namespace

BENCHMARK(BM_IpcRoundTrip_Library);
BENCHMARK(BM_IpcRoundTrip_Plain);
BENCHMARK(BM_IpcRoundTrip_PlainWithExistenceTest);
BENCHMARK(BM_Ipv4ToText_Library);
BENCHMARK(BM_Ipv4ToText_Plain);
BENCHMARK(BM_Ipv6ToText_Library);
BENCHMARK(BM_Ipv6ToText_Plain);
BENCHMARK(BM_TextToIpv4_Library);
BENCHMARK(BM_TextToIpv4_Plain);
BENCHMARK(BM_DottedQuadCheck_Library);
BENCHMARK(BM_DottedQuadCheck_Plain);
BENCHMARK(BM_MacToText_Library);
BENCHMARK(BM_MacToText_Plain);
BENCHMARK(BM_TextToMac_StrMac);
BENCHMARK(BM_TextToMac_MacToChar);
BENCHMARK(BM_TextToMac_Plain);

BENCHMARK_MAIN();
