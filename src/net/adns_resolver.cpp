// Host name to an IPv4 address through GNU adns, optionally against a
// caller's resolver configuration text.
#include <adns.h>
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

#include <vxutil/net.h>

namespace {

// With a caller's text: debug diagnostics on standard output, and none of
// the system's configuration. Without: the system's configuration, no
// environment variables, diagnostics on adns's default stream.
constexpr auto kCallerConfigFlags = adns_initflags(adns_if_debug | adns_if_noautosys);
constexpr auto kSystemConfigFlags =
    adns_initflags(adns_if_debug | adns_if_noautosys | adns_if_noenv);
static_assert(kCallerConfigFlags == 0x18 && kSystemConfigFlags == 0x19, "adns flag values");

bool init_state(adns_state *state, const char *config)
{
    if (config) {
        if (adns_init_strcfg(state, kCallerConfigFlags, stdout, config) != 0) {
            puts("==adns_init_strcfg failure====");
            return false;
        }
    } else if (adns_init(state, kSystemConfigFlags, nullptr) != 0) {
        puts("===adns init failure====");
        return false;
    }
    return true;
}

// Writes the first record of the answer, if any, to out in network order.
void store_first_record(const adns_answer *answer, void *out)
{
    int record_size = 0;
    adns_rr_info(answer->type, nullptr, nullptr, &record_size, nullptr, nullptr);
    if (answer->nrrs < 1)
        return;
    char *text = nullptr;
    adns_rr_info(answer->type, nullptr, nullptr, nullptr, answer->rrs.untyped, &text);
    if (!text)
        return;
    inet_pton(record_size == 4 ? AF_INET : AF_INET6, text, out);
    free(text);
}

}  // namespace

extern "C" {

VXU_API int vexmar_resolver_dns(const char *config, const char *host, void *out)
{
    if (!host || !out)
        return -1;
    adns_state state = nullptr;
    if (!init_state(&state, config))
        return -1;
    adns_query query = nullptr;
    if (adns_submit(state, host, adns_r_a, adns_queryflags(0), nullptr, &query) != 0) {
        puts("===adns submit failure===");
        adns_finish(state);
        return -1;
    }
    adns_answer *answer = nullptr;
    if (adns_wait(state, &query, &answer, nullptr) != 0) {
        puts("===adns  wait failure===");
        adns_finish(state);
        return -1;
    }
    // The answer's status is not examined: a missing name or an empty
    // answer completes with out untouched.
    store_first_record(answer, out);
    free(answer);
    adns_finish(state);
    return 0;
}

}  // extern "C"
