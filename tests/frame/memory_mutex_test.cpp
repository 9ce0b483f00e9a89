#include <stdio.h>
#include <string.h>
#include <sys/resource.h>

#include <string>
#include <thread>

#include <vxutil/frame.h>

#include "common/test_support.hpp"

namespace {

// Runs fn with a temporary stream and returns what it wrote.
template <typename Fn>
std::string captured(Fn fn, int *result)
{
    FILE *f = tmpfile();
    EXPECT_NE(f, nullptr);
    *result = fn(f);
    fflush(f);
    rewind(f);
    char buf[128] = {};
    const size_t n = fread(buf, 1, sizeof buf, f);
    fclose(f);
    return std::string(buf, n);
}

TEST(Memory, RefusesEmptyAndNegativeSizes)
{
    EXPECT_EQ(nullptr, _vxu_mem_alloc("t", 1, 0));
    EXPECT_EQ(nullptr, _vxu_mem_alloc("t", 1, -5));
    _vxu_mem_free("t", 1, nullptr);  // ignored, must not crash
}

TEST(Memory, BlocksAreZeroFilled)
{
    for (int size : {1, 7, 4096, 1 << 20}) {
        auto *p = static_cast<unsigned char *>(vxu_mem_alloc(size));
        ASSERT_NE(p, nullptr) << size;
        for (int i = 0; i < size; ++i)
            ASSERT_EQ(0, p[i]) << "byte " << i << " of " << size;
        memset(p, 0xAB, static_cast<size_t>(size));
        vxu_mem_free(p);
    }
}

TEST(Memory, ExhaustionGivesNull)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers reserve more address space than the limit allows";
#else
    SKIP_UNDER_EMULATION("RLIMIT_AS for the guest");
    EXPECT_IN_CHILD([] {
        const struct rlimit limit = {256u << 20, 256u << 20};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        EXPECT_EQ(nullptr, vxu_mem_alloc(1 << 30));
    });
#endif
}

TEST(Dump, FixedTextsAndResults)
{
    int rc = -1;
    EXPECT_EQ("mem tracking is not supported\n", captured(vxu_mem_dump, &rc));
    EXPECT_EQ(30, rc);
    rc = -1;
    EXPECT_EQ("mutex tracking is not supported\n", captured(vxu_mutex_dump, &rc));
    EXPECT_EQ(0, rc);
}

TEST(Dump, MemDumpReportsAFailedWrite)
{
    // A read-only stream cannot take the line: fwrite reports 0 items.
    FILE *f = fopen("/dev/null", "r");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(0, vxu_mem_dump(f));
    EXPECT_EQ(0, vxu_mutex_dump(f));
    fclose(f);
}

TEST(Mutex, LabelDoesNotMatter)
{
    pthread_mutex_t a, b;
    EXPECT_EQ(0, vxu_mutex_init(&a, "cmdq"));
    EXPECT_EQ(0, vxu_mutex_init(&b, nullptr));
    EXPECT_EQ(0, vxu_mutex_destroy(&a));
    EXPECT_EQ(0, vxu_mutex_destroy(&b));
}

TEST(Mutex, ExcludesOtherThreads)
{
    pthread_mutex_t m;
    ASSERT_EQ(0, vxu_mutex_init(&m, "t"));
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            ASSERT_EQ(0, vxu_mutex_lock(&m));
            ++counter;
            ASSERT_EQ(0, vxu_mutex_unlock(&m));
        }
    };
    std::thread t1(work), t2(work);
    t1.join();
    t2.join();
    EXPECT_EQ(200000, counter);

    // Plain mutex semantics: a held mutex cannot be taken by trylock.
    ASSERT_EQ(0, vxu_mutex_lock(&m));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&m));
    EXPECT_EQ(0, vxu_mutex_unlock(&m));
    EXPECT_EQ(0, vxu_mutex_destroy(&m));
}

}  // namespace
