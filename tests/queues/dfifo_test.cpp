#include <vxutil/queues.h>

#include <gtest/gtest.h>

namespace {

// A zeroed control record, deinitialised at the end of the test.
struct fifo {
    dfifo_ctx ctx = {};
    ~fifo() { dfifo_deinit(&ctx); }
};

int objs[8];

TEST(Dfifo, OneSlotAlwaysStaysEmpty)
{
    fifo f;
    ASSERT_EQ(0, dfifo_init(&f.ctx, 4));
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(0, dfifo_put(&f.ctx, &objs[i]));
    EXPECT_EQ(-1, dfifo_put(&f.ctx, &objs[3])) << "full at size - 1";
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(&objs[i], dfifo_get(&f.ctx));
    EXPECT_EQ(nullptr, dfifo_get(&f.ctx));

    fifo one;
    ASSERT_EQ(0, dfifo_init(&one.ctx, 1));
    EXPECT_EQ(-1, dfifo_put(&one.ctx, &objs[0]));
    EXPECT_EQ(nullptr, dfifo_get(&one.ctx));
}

TEST(Dfifo, IndicesWrapAroundAnySize)
{
    fifo f;
    ASSERT_EQ(0, dfifo_init(&f.ctx, 4));
    ASSERT_EQ(0, dfifo_put(&f.ctx, &objs[1]));
    ASSERT_EQ(0, dfifo_put(&f.ctx, &objs[2]));
    EXPECT_EQ(&objs[1], dfifo_get(&f.ctx));
    ASSERT_EQ(0, dfifo_put(&f.ctx, &objs[3]));
    ASSERT_EQ(0, dfifo_put(&f.ctx, &objs[4]));
    EXPECT_EQ(-1, dfifo_put(&f.ctx, &objs[5]));
    EXPECT_EQ(&objs[2], dfifo_get(&f.ctx));
    EXPECT_EQ(&objs[3], dfifo_get(&f.ctx));
    EXPECT_EQ(&objs[4], dfifo_get(&f.ctx));
    EXPECT_EQ(nullptr, dfifo_get(&f.ctx));

    // Not a power of two: many laps keep order and the size - 1 bound.
    fifo odd;
    ASSERT_EQ(0, dfifo_init(&odd.ctx, 5));
    int next_in = 0, next_out = 0;
    for (int lap = 0; lap < 20; ++lap) {
        while (dfifo_put(&odd.ctx, &objs[next_in % 8]) == 0)
            ++next_in;
        EXPECT_EQ(4, next_in - next_out);
        for (int k = 0; k < 3; ++k, ++next_out)
            ASSERT_EQ(&objs[next_out % 8], dfifo_get(&odd.ctx));
        EXPECT_GE(odd.ctx.head, 0);
        EXPECT_LT(odd.ctx.tail, 5);
    }
}

TEST(Dfifo, RefusesWhatItCannotUse)
{
    EXPECT_EQ(-1, dfifo_init(nullptr, 4));
    EXPECT_EQ(-1, dfifo_put(nullptr, &objs[0]));
    EXPECT_EQ(nullptr, dfifo_get(nullptr));
    dfifo_deinit(nullptr);

    fifo f;
    EXPECT_EQ(-1, dfifo_put(&f.ctx, &objs[0])) << "not initialised";
    EXPECT_EQ(nullptr, dfifo_get(&f.ctx));
    ASSERT_EQ(0, dfifo_init(&f.ctx, 4));
    EXPECT_EQ(-1, dfifo_put(&f.ctx, nullptr));
    EXPECT_EQ(nullptr, dfifo_get(&f.ctx)) << "the null was not stored";

    ASSERT_EQ(0, dfifo_put(&f.ctx, &objs[0]));
    void **first = f.ctx.slots;
    EXPECT_EQ(-1, dfifo_init(&f.ctx, 8)) << "already initialised";
    EXPECT_EQ(first, f.ctx.slots);
    EXPECT_EQ(4, f.ctx.size);
    EXPECT_EQ(&objs[0], dfifo_get(&f.ctx));
    dfifo_deinit(&f.ctx);
    EXPECT_EQ(nullptr, f.ctx.slots);
    EXPECT_EQ(0, dfifo_init(&f.ctx, 8)) << "usable again after deinit";
    EXPECT_EQ(8, f.ctx.size);

    fifo zero;
    ASSERT_EQ(0, dfifo_init(&zero.ctx, 0));
    EXPECT_EQ(-1, dfifo_put(&zero.ctx, &objs[0]));
    EXPECT_EQ(nullptr, dfifo_get(&zero.ctx));

    fifo negative;
    EXPECT_EQ(-1, dfifo_init(&negative.ctx, -3));
    EXPECT_EQ(nullptr, negative.ctx.slots);
}

}  // namespace
