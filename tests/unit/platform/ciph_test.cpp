// The crypto library, made ready.
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <openssl/md5.h>
#include <string_view>
#include <thread>
#include <vector>

#include <ciph.h>

namespace lanyard::test::ciph_test {
namespace {

TEST(Ciph, InitManyTimes_Md5Usable) {
    EXPECT_EQ(0, ciphMD5Init());
    EXPECT_EQ(0, ciphMD5Init());

    // RFC 1321, appendix A.5.
    constexpr std::string_view kText = "message digest";
    std::array<unsigned char, MD5_DIGEST_LENGTH> digest{};
    MD5_CTX context;
    ASSERT_EQ(1, MD5_Init(&context));
    ASSERT_EQ(1, MD5_Update(&context, kText.data(), kText.size()));
    ASSERT_EQ(1, MD5_Final(digest.data(), &context));
    EXPECT_EQ((std::array<unsigned char, MD5_DIGEST_LENGTH>{0xf9, 0x6b, 0x69, 0x7d, 0x7c, 0xb7,
                                                            0x93, 0x8d, 0x52, 0x5a, 0x2f, 0x31,
                                                            0xaa, 0xf1, 0x61, 0xd0}),
              digest);
}

TEST(Ciph, InitFromSeveralThreads_Succeeds) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] { failures += ciphMD5Init() == 0 ? 0 : 1; });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures);
}

}  // namespace
}  // namespace lanyard::test::ciph_test
