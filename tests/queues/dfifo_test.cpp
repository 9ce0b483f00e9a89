#include <malloc.h>

#include <deque>
#include <random>

#include <vxutil/queues.h>

#include <gtest/gtest.h>

namespace {

// Random puts and gets on rings of 0 to 7 slots against a deque that holds
// at most size - 1; null records and pointers are refused throughout.
TEST(Dfifo, RandomPutsAndGetsMatchABoundedDeque)
{
    const unsigned seed = 7;
    std::mt19937 rng(seed);
    int objs[16];
    EXPECT_EQ(-1, dfifo_init(nullptr, 4));
    dfifo_deinit(nullptr);
    for (int round = 0; round < 40; ++round) {
        const int size = static_cast<int>(rng() % 8);
        dfifo_ctx f = {};
        EXPECT_EQ(-1, dfifo_put(&f, &objs[0])) << "not initialised";
        EXPECT_EQ(-1, dfifo_init(&f, -3));
        ASSERT_EQ(0, dfifo_init(&f, size));
        EXPECT_EQ(-1, dfifo_init(&f, 4)) << "already initialised";
        std::deque<void *> model;
        for (int step = 0; step < 60; ++step) {
            SCOPED_TRACE(testing::Message()
                         << "seed " << seed << " size " << size << " step " << step);
            if (rng() % 2) {
                void *p = rng() % 8 ? &objs[rng() % 16] : nullptr;
                dfifo_ctx *to = rng() % 16 ? &f : nullptr;
                const bool fits = to && p && static_cast<int>(model.size()) < size - 1;
                ASSERT_EQ(fits ? 0 : -1, dfifo_put(to, p));
                if (fits)
                    model.push_back(p);
            } else {
                dfifo_ctx *from = rng() % 16 ? &f : nullptr;
                ASSERT_EQ(model.empty() || !from ? nullptr : model.front(), dfifo_get(from));
                if (from && !model.empty())
                    model.pop_front();
            }
        }
        dfifo_deinit(&f);
        EXPECT_EQ(nullptr, f.slots);
    }
    // A ring of 8 MB is mapped on its own, so deinit must unmap it again
    // (sanitizers and valgrind allocate elsewhere and count leaks themselves).
    const size_t mapped = mallinfo2().hblkhd;
    dfifo_ctx f = {};
    ASSERT_EQ(0, dfifo_init(&f, 1 << 20));
    const bool seen = mallinfo2().hblkhd > mapped;
    dfifo_deinit(&f);
    EXPECT_TRUE(!seen || mallinfo2().hblkhd == mapped) << "ring not released";
}

}  // namespace
