// Random numbers and their sources.
#include <algorithm>
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

#include <palcore.h>

namespace lanyard::test::random_test {
namespace {

struct Countdown {
    std::atomic<int> left;
    std::atomic<int> calls{0};
};

int drawSevens(void *context, uint8_t *out, uint32_t length) {
    auto *countdown = static_cast<Countdown *>(context);
    ++countdown->calls;
    std::fill_n(out, length, uint8_t{7});
    return countdown->left-- > 0 ? 0 : 5;
}

class Random : public testing::Test {
  protected:
    ~Random() override { palRandLibInit(nullptr, nullptr); }
};

template <typename Draw>
void expectNoRepetition(Draw draw) {
    std::set<std::array<uint8_t, 16>> seen;
    for (int i = 0; i < 100; ++i) {
        std::array<uint8_t, 16> bytes{};
        ASSERT_EQ(0, draw(bytes.data(), static_cast<uint32_t>(bytes.size())));
        EXPECT_TRUE(seen.insert(bytes).second);
    }
}

TEST_F(Random, NoSource_DrawsFromTheKernel) {
    expectNoRepetition(palRandGen);
}

TEST_F(Random, LargeBuffer_FilledToTheEnd) {
    std::vector<uint8_t> bytes((1U << 20) + 3);
    ASSERT_EQ(0, palRandGen(bytes.data(), static_cast<uint32_t>(bytes.size())));
    // 64 zero bytes in a row come up once in 2^490 runs.
    const std::array<uint8_t, 64> zeros{};
    EXPECT_EQ(bytes.end(), std::search(bytes.begin(), bytes.end(), zeros.begin(), zeros.end()));
    EXPECT_FALSE(std::all_of(bytes.end() - 16, bytes.end(), [](uint8_t b) { return b == 0; }));
}

TEST_F(Random, OneByte_WritesNoMore) {
    std::array<uint8_t, 3> bytes{0xaa, 0xaa, 0xaa};
    ASSERT_EQ(0, palRandGen(bytes.data() + 1, 1));
    EXPECT_EQ(0xaa, bytes[0]);
    EXPECT_EQ(0xaa, bytes[2]);
}

TEST_F(Random, SourceThatWasSet_DrawnFrom) {
    Countdown countdown{{1}};
    ASSERT_EQ(0, palRandLibInit(drawSevens, &countdown));
    std::array<uint8_t, 4> bytes{};
    EXPECT_EQ(0, palRandGen(bytes.data(), 4));
    EXPECT_EQ((std::array<uint8_t, 4>{7, 7, 7, 7}), bytes);
    EXPECT_EQ(1, countdown.calls);
}

TEST_F(Random, SourceThatFails_Fails) {
    Countdown countdown{{0}};
    palRandLibInit(drawSevens, &countdown);
    std::array<uint8_t, 4> bytes{};
    EXPECT_EQ(-1, palRandGen(bytes.data(), 4));
}

TEST_F(Random, NullSource_ReturnsToTheKernel) {
    Countdown countdown{{0}};
    palRandLibInit(drawSevens, &countdown);
    ASSERT_EQ(0, palRandLibInit(nullptr, &countdown));
    expectNoRepetition(palRandGen);
    EXPECT_EQ(0, countdown.calls);
}

TEST_F(Random, NullBuffer_RefusedUnlessNothingIsAsked) {
    EXPECT_EQ(-1, palRandGen(nullptr, 1));
    EXPECT_EQ(0, palRandGen(nullptr, 0));
    EXPECT_EQ(-1, palCiphPRNGInit(nullptr, nullptr, 1));
    EXPECT_EQ(0, palCiphPRNGInit(nullptr, nullptr, 0));
}

TEST_F(Random, CryptoLibrarysGenerator_WorksAsASource) {
    expectNoRepetition(
        [](uint8_t *out, uint32_t length) { return palCiphPRNGInit(nullptr, out, length); });
    ASSERT_EQ(0, palRandLibInit(palCiphPRNGInit, nullptr));
    expectNoRepetition(palRandGen);
}

TEST_F(Random, SourceChangedWhileThreadsDraw_NoneFails) {
    Countdown countdown{{1'000'000}};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            std::array<uint8_t, 8> bytes{};
            for (int i = 0; i < 500; ++i) {
                failures += palRandGen(bytes.data(), 8) == 0 ? 0 : 1;
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        palRandLibInit(i % 2 == 0 ? drawSevens : nullptr, &countdown);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures);
}

}  // namespace
}  // namespace lanyard::test::random_test
