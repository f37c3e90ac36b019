// Bytes in tests.
//
//     using namespace lanyard::test;
//     const Bytes packet = "0100 0014  0f403f94 73978057 bd83d5cb 98f4227a"_hex;
//     EXPECT_BYTES_EQ(packet, server.request(0));  // shows both in hexadecimal on failure
//     EXPECT_EQ("0f403f94", toHex(ByteView(packet).subspan(4, 4)));
//
// Whatever holds bytes one after the other (vector, array, span, GuardedBuffer::bytes(), a
// received request) is a ByteView.
#ifndef LANYARD_TESTS_SUPPORT_BYTES_H
#define LANYARD_TESTS_SUPPORT_BYTES_H

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lanyard::test {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

// The bytes of pairs of hexadecimal digits; white space between them is ignored. Anything else
// throws std::invalid_argument, which fails the test.
Bytes fromHex(std::string_view hex);

// The same as a literal: "0f40 3f94"_hex.
Bytes operator""_hex(const char *hex, size_t length);

// The characters of a text, without a NUL.
Bytes fromText(std::string_view text);

// The bytes as characters, NULs included.
std::string toText(ByteView bytes);

// Lower-case digits without blanks: "0f403f94".
std::string toHex(ByteView bytes);

// All parts one after the other.
Bytes concatenate(std::initializer_list<ByteView> parts);

// For EXPECT_BYTES_EQ.
testing::AssertionResult compareBytes(const char *expectedExpression, const char *actualExpression,
                                      ByteView expected, ByteView actual);

}  // namespace lanyard::test

// Compares bytes; on failure it shows where they differ first and both as a hexadecimal dump.
#define EXPECT_BYTES_EQ(expected, actual) \
    EXPECT_PRED_FORMAT2(::lanyard::test::compareBytes, expected, actual)
#define ASSERT_BYTES_EQ(expected, actual) \
    ASSERT_PRED_FORMAT2(::lanyard::test::compareBytes, expected, actual)

#endif
