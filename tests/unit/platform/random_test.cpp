// Random numbers and their sources.
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <span>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <palcore.h>

#include "platform/kernel_random.h"

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

TEST_F(Random, SourceThatWasSet_AskedEachTime) {
    std::array<uint8_t, 4> bytes{};
    ASSERT_EQ(0, palRandGen(bytes.data(), 4));  // There is a reserve now.
    Countdown countdown{{3}};
    palRandLibInit(drawSevens, &countdown);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(0, palRandGen(bytes.data(), 4));
        EXPECT_EQ(i, countdown.calls);
    }
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

using Bytes = std::array<uint8_t, 16>;

Bytes drawBytes() {
    Bytes bytes{};
    EXPECT_EQ(0, palRandGen(bytes.data(), static_cast<uint32_t>(bytes.size())));
    return bytes;
}

// What a child draws next. `fork` returns as fork() does.
template <typename Fork>
Bytes drawnByChild(Fork fork) {
    std::array<int, 2> ends{};
    EXPECT_EQ(0, pipe(ends.data()));
    const auto child = static_cast<pid_t>(fork());
    if (child == 0) {
        Bytes bytes{};
        const bool drawn = palRandGen(bytes.data(), bytes.size()) == 0;
        const bool told = write(ends[1], bytes.data(), bytes.size()) == ssize_t{bytes.size()};
        _exit(drawn && told ? 0 : 1);
    }
    Bytes bytes{};
    EXPECT_EQ(ssize_t{bytes.size()}, read(ends[0], bytes.data(), bytes.size()));
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    close(ends[0]);
    close(ends[1]);
    return bytes;
}

TEST_F(Random, ForkedChild_DrawsOthersThanItsParent) {
    drawBytes();
    const Bytes byChild = drawnByChild(fork);
    EXPECT_NE(Bytes{}, byChild);
    EXPECT_NE(byChild, drawBytes());
}

TEST_F(Random, ChildOfARawClone_DrawsOthersThanItsParent) {
    drawBytes();
    // No library is told of it.
    const Bytes byChild = drawnByChild([] { return syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0); });
    EXPECT_NE(Bytes{}, byChild);
    EXPECT_NE(byChild, drawBytes());
}

TEST_F(Random, Threads_DrawOthersThanEachOther) {
    std::array<std::vector<Bytes>, 4> drawn;
    std::vector<std::thread> threads;
    threads.reserve(drawn.size());
    for (std::vector<Bytes> &mine : drawn) {
        threads.emplace_back(
            [&mine] { std::generate_n(std::back_inserter(mine), 100, drawBytes); });
    }
    std::set<Bytes> seen;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        seen.insert(drawn[i].begin(), drawn[i].end());
    }
    EXPECT_EQ(400U, seen.size());
}

Bytes drawnByHandler;
volatile sig_atomic_t handled;

TEST_F(Random, SignalHandlerThatDraws_GetsOthersThanWhatItInterrupts) {
    drawBytes();
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {
        palRandGen(drawnByHandler.data(), static_cast<uint32_t>(drawnByHandler.size()));
        handled = handled + 1;
    };
    ASSERT_EQ(0, sigaction(SIGALRM, &action, &before));
    const itimerval often{{0, 100}, {0, 100}};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &often, nullptr));
    int equal = 0;
    while (handled < 300) {
        const Bytes mine = drawBytes();
        equal += mine == Bytes{} || mine == drawnByHandler ? 1 : 0;
    }
    const itimerval never{};
    EXPECT_EQ(0, setitimer(ITIMER_REAL, &never, nullptr));
    EXPECT_EQ(0, sigaction(SIGALRM, &before, nullptr));
    EXPECT_EQ(0, equal);
}

using port::RandomReserve;

TEST(RandomReserve, Drawn_GivenOnceAndWiped) {
    RandomReserve reserve;
    std::array<uint8_t, 16> drawn{};
    ASSERT_TRUE(reserve.draw(drawn));
    ASSERT_EQ(RandomReserve::kSize, reserve.bytes().size());
    for (size_t at = 16; at < RandomReserve::kSize; at += 16) {
        const auto wiped = reserve.bytes().first(at);
        EXPECT_TRUE(std::all_of(wiped.begin(), wiped.end(), [](uint8_t b) { return b == 0; }));
        std::array<uint8_t, 16> next{};
        std::copy_n(reserve.bytes().begin() + static_cast<ptrdiff_t>(at), next.size(),
                    next.begin());
        EXPECT_NE((std::array<uint8_t, 16>{}), next);
        ASSERT_TRUE(reserve.draw(drawn));
        EXPECT_EQ(next, drawn);
    }
    const auto wiped = reserve.bytes();
    EXPECT_TRUE(std::all_of(wiped.begin(), wiped.end(), [](uint8_t b) { return b == 0; }));
    ASSERT_TRUE(reserve.draw(drawn));
    EXPECT_NE((std::array<uint8_t, 16>{}), drawn);
}

TEST(RandomReserve, MoreThanIsLeft_DrawnAnew) {
    RandomReserve reserve;
    std::array<uint8_t, RandomReserve::kSize> drawn{};
    ASSERT_TRUE(reserve.draw(std::span(drawn).first(250)));
    ASSERT_TRUE(reserve.draw(std::span(drawn).first(7)));
    EXPECT_TRUE(std::all_of(reserve.bytes().begin(), reserve.bytes().begin() + 7,
                            [](uint8_t b) { return b == 0; }));
    EXPECT_TRUE(std::any_of(reserve.bytes().begin() + 7, reserve.bytes().begin() + 39,
                            [](uint8_t b) { return b != 0; }));
    EXPECT_TRUE(reserve.draw(drawn));
}

TEST(RandomReserve, MoreThanAReserve_RefusedAndNothingDrawn) {
    RandomReserve reserve;
    std::array<uint8_t, RandomReserve::kSize + 1> drawn{};
    EXPECT_FALSE(reserve.draw(drawn));
    const auto bytes = reserve.bytes();
    EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; }));
}

TEST(RandomReserve, End_LeavesNoMemory) {
    const void *page = nullptr;
    {
        const RandomReserve reserve;
        page = reserve.bytes().data();
    }
    unsigned char resident = 0;
    EXPECT_EQ(-1, mincore(const_cast<void *>(page), 1, &resident));
    EXPECT_EQ(ENOMEM, errno);
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
