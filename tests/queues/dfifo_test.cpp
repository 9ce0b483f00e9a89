#include <vxutil/queues.h>

#include <gtest/gtest.h>

namespace {

int objs[8];

TEST(Dfifo, RingKeepsOrderAndOneSlotFree)
{
    dfifo_ctx f = {};
    ASSERT_EQ(0, dfifo_init(&f, 4));
    ASSERT_EQ(0, dfifo_put(&f, &objs[1]));
    ASSERT_EQ(0, dfifo_put(&f, &objs[2]));
    EXPECT_EQ(&objs[1], dfifo_get(&f));
    ASSERT_EQ(0, dfifo_put(&f, &objs[3]));
    ASSERT_EQ(0, dfifo_put(&f, &objs[4]));
    EXPECT_EQ(-1, dfifo_put(&f, &objs[5])) << "full at size - 1, across the wrap";
    for (int i = 2; i <= 4; ++i)
        EXPECT_EQ(&objs[i], dfifo_get(&f));
    EXPECT_EQ(nullptr, dfifo_get(&f));
    dfifo_deinit(&f);

    // Not a power of two: many laps keep order and the size - 1 bound.
    ASSERT_EQ(0, dfifo_init(&f, 5));
    int in = 0, out = 0;
    for (int lap = 0; lap < 20; ++lap) {
        while (dfifo_put(&f, &objs[in % 8]) == 0)
            ++in;
        ASSERT_EQ(4, in - out);
        for (int k = 0; k < 3; ++k, ++out)
            ASSERT_EQ(&objs[out % 8], dfifo_get(&f));
    }
    dfifo_deinit(&f);
}

TEST(Dfifo, RefusesWhatItCannotUse)
{
    EXPECT_EQ(-1, dfifo_init(nullptr, 4));
    EXPECT_EQ(-1, dfifo_put(nullptr, &objs[0]));
    EXPECT_EQ(nullptr, dfifo_get(nullptr));
    dfifo_deinit(nullptr);

    dfifo_ctx f = {};
    EXPECT_EQ(-1, dfifo_put(&f, &objs[0])) << "not initialised";
    EXPECT_EQ(-1, dfifo_init(&f, -3));
    EXPECT_EQ(nullptr, f.slots);
    for (int size : {0, 1}) {
        ASSERT_EQ(0, dfifo_init(&f, size));
        EXPECT_EQ(-1, dfifo_put(&f, &objs[0])) << "size " << size << " holds nothing";
        EXPECT_EQ(nullptr, dfifo_get(&f));
        dfifo_deinit(&f);
    }
    ASSERT_EQ(0, dfifo_init(&f, 4));
    EXPECT_EQ(-1, dfifo_put(&f, nullptr));
    ASSERT_EQ(0, dfifo_put(&f, &objs[0]));
    void **first = f.slots;
    EXPECT_EQ(-1, dfifo_init(&f, 8)) << "already initialised";
    EXPECT_EQ(first, f.slots);
    EXPECT_EQ(&objs[0], dfifo_get(&f)) << "the null was never stored";
    dfifo_deinit(&f);
    EXPECT_EQ(nullptr, f.slots);
}

}  // namespace
