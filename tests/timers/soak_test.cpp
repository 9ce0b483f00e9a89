// Thirty seconds of a busy timer service: a thousand list timers and a
// hundred timer descriptors run together. A list timer is re-armed when
// served, so it fires at most once per period; a descriptor keeps the
// kernel's schedule, so it misses none. Label soak (make test-soak).
#include <algorithm>

#include "timers/tmr_test_util.hpp"

using namespace tmr_test;

namespace {

constexpr uint64_t kSoakMs = 30000, kLatenessMs = 2000;  // the machine is shared

TEST(TmrSoak, ThousandListTimersAndHundredDescriptorsForThirtySeconds)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_tmr_init());
        const vxu_test::fd_leak_check released;  // every timer descriptor closed at the end
        const int count = alarm_timers_available() ? 1100 : 1000;
        std::vector<int> ids;
        std::vector<uint64_t> period, started;
        for (int i = 0; i < count; ++i) {
            period.push_back(i < 1000 ? 200 + (i % 50) * 20 : 500 + (i % 10) * 50);
            ids.push_back(vxu_tmr_create(i < 1000 ? VXU_TMR_TYPE_LIST : VXU_TMR_TYPE_FD));
            ASSERT_EQ(0,
                      vxu_tmr_set(ids[i], static_cast<uint32_t>(period[i]), 1, record_firing, i));
            started.push_back(vxu_com_get_uptime_ms());
            const int rc = vxu_tmr_start(ids[i]);  // -1 when the byte did not fit: runs anyway
            ASSERT_TRUE(rc == 0 || (rc == -1 && vxu_tmr_status(ids[i]) == 1)) << i;
        }
        sleep_ms(kSoakMs);
        std::vector<uint64_t> stopped;
        for (int id : ids) {
            ASSERT_EQ(0, vxu_tmr_stop(id));
            stopped.push_back(vxu_com_get_uptime_ms());
        }
        sleep_ms(1000);  // a callback under way at the last stop ends
        std::vector<std::vector<uint64_t>> fired(count);
        for (const firing &f : firings()) {
            ASSERT_EQ(ids.at(f.arg), f.id);
            fired[f.arg].push_back(f.at_ms);
        }
        for (int i = 0; i < count; ++i) {
            SCOPED_TRACE(testing::Message() << "timer " << i << " every " << period[i] << " ms");
            const uint64_t span = stopped[i] - started[i], n = fired[i].size();
            EXPECT_LE(n, span / period[i] + 1) << "more callbacks than expiries";
            EXPECT_GE(n, i < 1000 ? span / (period[i] + kLatenessMs)
                                  : (span - kLatenessMs) / period[i]);
            for (uint64_t k = 0; k < n; ++k)
                EXPECT_GE(fired[i][k], started[i] + (k + 1) * period[i]) << "early, call " << k;
            EXPECT_LE(std::count_if(fired[i].begin(), fired[i].end(),
                                    [&](uint64_t at) { return at > stopped[i]; }),
                      1);
        }
        for (int id : ids)
            ASSERT_EQ(0, vxu_tmr_delete(id));
        EXPECT_TRUE(eventually([&] { return vxu_tmr_status(ids.back()) == -2; }));
    });
}

}  // namespace
