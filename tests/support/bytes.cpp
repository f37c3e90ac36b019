#include "tests/support/bytes.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace lanyard::test {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

uint8_t digitValue(char digit) {
    const size_t value =
        kDigits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(digit))));
    if (value == std::string_view::npos) {
        throw std::invalid_argument(std::string("not a hexadecimal digit: '") + digit + "'");
    }
    return static_cast<uint8_t>(value);
}

// Sixteen bytes a line after their offset, in groups of four; the byte at `mark` is bracketed.
std::string dump(ByteView bytes, size_t mark) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i % 16 == 0) {
            const std::string offset = std::to_string(i);
            text +=
                "\n    " + std::string(5 - std::min<size_t>(5, offset.size()), ' ') + offset + ":";
        }
        text += i % 4 == 0 ? "  " : " ";
        const std::string byte = toHex(bytes.subspan(i, 1));
        text += i == mark ? "[" + byte + "]" : byte;
    }
    return text;
}

}  // namespace

Bytes fromHex(std::string_view hex) {
    std::string digits;
    std::copy_if(hex.begin(), hex.end(), std::back_inserter(digits),
                 [](unsigned char c) { return std::isspace(c) == 0; });
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hexadecimal digits: " + std::string(hex));
    }
    Bytes bytes;
    bytes.reserve(digits.size() / 2);
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(
            static_cast<uint8_t>(digitValue(digits[i]) << 4 | digitValue(digits[i + 1])));
    }
    return bytes;
}

Bytes operator""_hex(const char *hex, size_t length) {
    return fromHex({hex, length});
}

Bytes fromText(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string toText(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string toHex(ByteView bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

Bytes concatenate(std::initializer_list<ByteView> parts) {
    Bytes whole;
    for (const ByteView part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

testing::AssertionResult compareBytes(const char *expectedExpression, const char *actualExpression,
                                      ByteView expected, ByteView actual) {
    const auto [expectedEnd, actualEnd] =
        std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    if (expectedEnd == expected.end() && actualEnd == actual.end()) {
        return testing::AssertionSuccess();
    }
    const auto offset = static_cast<size_t>(expectedEnd - expected.begin());
    return testing::AssertionFailure()
           << "The bytes differ from offset " << offset << " on.\n  Expected, " << expected.size()
           << " bytes: " << expectedExpression << dump(expected, offset) << "\n  Actual, "
           << actual.size() << " bytes: " << actualExpression << dump(actual, offset);
}

}  // namespace lanyard::test
