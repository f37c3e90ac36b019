// What the tests of the request engine share.
#ifndef LANYARD_TESTS_UNIT_ENGINE_FIXTURE_H
#define LANYARD_TESTS_UNIT_ENGINE_FIXTURE_H

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>

#include "tests/support/bytes.h"
#include "tests/support/pair_list.h"

namespace lanyard::test {

// Fails the test when a descriptor is left open after it, above all a socket of a request.
class EngineTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

  private:
    size_t descriptorsBefore_ = 0;
};

size_t openDescriptors();

// Pairs as plain records: for calls that only read them.
RadPair textPair(int attrNum, std::string_view text, const std::string &name = "Some-Text");
RadPair numberPair(int attrNum, uint32_t number, int type = RAD_TYPE_INTEGER,
                   const std::string &name = "Some-Number");

class PairRecords {
  public:
    PairRecords(std::vector<RadPair> pairs);  // NOLINT(google-explicit-constructor): reads as one
    PairRecords(const PairRecords &) = delete;
    PairRecords &operator=(const PairRecords &) = delete;

    [[nodiscard]] const RadPair *list() const { return pairs_.data(); }

  private:
    std::vector<RadPair> pairs_;
};

// The attribute numbers of a list, in order.
std::vector<int> attrNums(const RadPair *list);

// Hooks of the library as functions of the test; an empty one leaves its slot empty. They are
// installed for as long as the object is there, one at a time.
class Hooks {
  public:
    using Pack = std::function<int(uint8_t *value, uint8_t *length, const RadPair *pair,
                                   const char *secret, RadPacket *packet)>;
    using Unpack = std::function<int(RadPair *pair, RadPair *list, RadPacket *reply,
                                     RadPacket *request, const char *secret)>;

    explicit Hooks(Pack pack, Unpack unpack = {});
    Hooks(const Hooks &) = delete;
    Hooks &operator=(const Hooks &) = delete;
    ~Hooks();
};

// What palRandGen() gives meanwhile: these bytes over and over, or a failure when there are none.
class RandomBytes {
  public:
    explicit RandomBytes(Bytes bytes);
    RandomBytes(const RandomBytes &) = delete;
    RandomBytes &operator=(const RandomBytes &) = delete;
    ~RandomBytes();

  private:
    Bytes bytes_;
};

// The example of RFC 2865 section 7.1.
namespace example {
inline constexpr const char *kSecret = "xyzzy5461";
inline constexpr const char *kAuthenticator = "0f403f9473978057bd83d5cb98f4227a";
inline constexpr const char *kHiddenPassword = "0dbe708d93d413ce3196e43f782a0aee";
inline constexpr const char *kRequest =
    "01000038 0f403f9473978057bd83d5cb98f4227a 01066e656d6f"
    "02120dbe708d93d413ce3196e43f782a0aee 0406c0a80110 050600000003";
inline constexpr const char *kReply =
    "02000026 86fe220e7624ba2a1005f6bf9b55e0b2 060600000001 0f0600000000 0e06c0a80103";
std::vector<RadPair> requestPairs();
}  // namespace example

}  // namespace lanyard::test

#endif
