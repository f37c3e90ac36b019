// From pairs to the attributes of a request.
#include <initializer_list>
#include <string>
#include <vector>

#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/fixture.h"

namespace lanyard::test::packer_test {
namespace {

using testing::ElementsAre;

constexpr const char *kSecret = "secret";
constexpr uint8_t kUntouched = 0xa5;

class PackerTest : public EngineTest {
  protected:
    ConfiguredLibrary library_;
};

// A request in front of an inaccessible page, with its header written.
class Packet {
  public:
    explicit Packet(size_t length) : bytes_(length) {
        auto *header = bytes_.as<RadPacket>();
        header->code = 1;
        header->identifier = 0;
        header->length[0] = static_cast<uint8_t>(length >> 8);
        header->length[1] = static_cast<uint8_t>(length);
        const Bytes authenticator = fromHex(example::kAuthenticator);
        std::copy(authenticator.begin(), authenticator.end(), header->authenticator);
    }

    RadPacket *get() { return bytes_.as<RadPacket>(); }
    ByteView bytes() const { return bytes_.bytes(); }
    ByteView attributes() const { return bytes().subspan(kHeaderSize); }

  private:
    GuardedBuffer bytes_;
};

// What a list measures; fails the test when it cannot be measured.
uint32_t measured(const RadPair *list) {
    uint32_t total = 12345;
    EXPECT_EQ(0, radPackList(list, RAD_PACK_MEASURE, &total));
    return total;
}

// The attributes that a list makes in a packet of just the size that it measures.
Bytes packed(const PairRecords &pairs, const char *secret = kSecret) {
    Packet packet(kHeaderSize + measured(pairs.list()));
    EXPECT_EQ(0, radPackList(pairs.list(), RAD_PACK, packet.get(), secret));
    return {packet.attributes().begin(), packet.attributes().end()};
}

using Encode = PackerTest;

TEST_F(Encode, MeasuresTheLengthByteOfEachKind) {
    struct Case {
        RadPair pair;
        int length;
    };
    const std::string text(253, 'x');
    const std::vector<Case> cases = {
        {textPair(2, ""), 2},
        {textPair(2, text.substr(0, 1)), 18},
        {textPair(2, text.substr(0, 16)), 18},
        {textPair(2, text.substr(0, 17)), 34},
        {textPair(2, text.substr(0, 32)), 34},
        {textPair(2, text.substr(0, 240)), 242},
        {textPair(80, ""), 18},
        {textPair(80, text), 18},
        {numberPair(80, 5), 18},
        {numberPair(5, 3, RAD_TYPE_INTEGER), 6},
        {numberPair(4, 3, RAD_TYPE_IPADDR), 6},
        {numberPair(55, 3, RAD_TYPE_DATE), 6},
        {textPair(1, ""), 2},
        {textPair(1, "nemo"), 6},
        {textPair(1, text), 255},
        {numberPair(5, 3, 7), 0},
        {numberPair(5, 3, 4), 0},
        {numberPair(5, 3, -1), 0},
    };
    const LogRecorder log;
    for (const Case &entry : cases) {
        uint8_t length = kUntouched;
        EXPECT_EQ(0, radPairEncode(nullptr, &length, &entry.pair, nullptr, nullptr));
        EXPECT_EQ(entry.length, length) << entry.pair.attrNum << ", " << entry.pair.numValue;
    }
    EXPECT_LOG(log);
}

TEST_F(Encode, RefusesAValueThatCannotFitOneAttribute) {
    std::vector<RadPair> pairs;
    for (const uint32_t length : {254U, 255U, 256U, 300U, 65536U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        RadPair pair = textPair(1, std::string(253, 'x'));
        pair.numValue = length;
        pairs.push_back(pair);
    }
    for (const uint32_t length : {241U, 253U, 254U, 300U, 0xFFFFFFF0U, 0xFFFFFFFFU}) {
        RadPair pair = textPair(2, std::string(253, 'x'));
        pair.numValue = length;
        pairs.push_back(pair);
    }
    for (const RadPair &pair : pairs) {
        SCOPED_TRACE(testing::Message() << pair.attrNum << ", " << pair.numValue);
        uint8_t length = 0;
        EXPECT_EQ(-1, radPairEncode(nullptr, &length, &pair, nullptr, nullptr));
        uint32_t total = 0;
        EXPECT_EQ(-1, radPackList(&pair, RAD_PACK_MEASURE, &total));
        Packet packet(kHeaderSize + 255);
        EXPECT_EQ(
            -1, radPairEncode(packet.get()->authenticator, &length, &pair, kSecret, packet.get()));
        EXPECT_EQ(-1, radPackList(&pair, RAD_PACK, packet.get(), kSecret));
        EXPECT_BYTES_EQ(fromHex(example::kAuthenticator), packet.bytes().subspan(4, 16));
    }
}

TEST_F(Encode, CannotPackATextThatWasCutWhenItBecameAPair) {
    const PairList pair(radPairNew(1, std::string(300, 'x').c_str(), -1));
    ASSERT_NE(nullptr, pair);
    uint32_t total = 0;
    EXPECT_EQ(-1, radPackList(pair.get(), RAD_PACK_MEASURE, &total));
}

TEST_F(Encode, RefusesMissingPlaces) {
    const RadPair pair = textPair(1, "nemo");
    uint8_t length = kUntouched;
    Bytes value(16, kUntouched);
    EXPECT_EQ(-1, radPairEncode(value.data(), nullptr, &pair, kSecret, nullptr));
    EXPECT_EQ(-1, radPairEncode(value.data(), &length, nullptr, kSecret, nullptr));
    EXPECT_EQ(-1, radPairEncode(nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(kUntouched, length);
    EXPECT_BYTES_EQ(Bytes(16, kUntouched), value);
}

TEST_F(Encode, NeedsSecretAndRequestForWhatIsHiddenOrSignedAlone) {
    Packet packet(kHeaderSize);
    for (const RadPair &pair :
         {textPair(2, "arctangent"), textPair(2, ""), textPair(80, std::string(16, '\0'))}) {
        uint8_t length = 0;
        Bytes value(16, kUntouched);
        EXPECT_EQ(-1, radPairEncode(value.data(), &length, &pair, nullptr, packet.get()));
        EXPECT_EQ(-1, radPairEncode(value.data(), &length, &pair, kSecret, nullptr));
        EXPECT_BYTES_EQ(Bytes(16, kUntouched), value);
    }
    uint8_t length = 0;
    GuardedBuffer value(4);
    const RadPair text = textPair(1, "nemo");
    EXPECT_EQ(0, radPairEncode(value.data(), &length, &text, nullptr, nullptr));
    EXPECT_EQ("nemo", toText(value.bytes()));
    const RadPair number = numberPair(5, 0x01020304);
    EXPECT_EQ(0, radPairEncode(value.data(), &length, &number, nullptr, nullptr));
    EXPECT_BYTES_EQ("01020304"_hex, value.bytes());
}

TEST_F(Encode, WritesNumbersMostSignificantByteFirst) {
    for (const int type : {RAD_TYPE_INTEGER, RAD_TYPE_IPADDR, RAD_TYPE_DATE}) {
        EXPECT_BYTES_EQ("0506deadbeef"_hex, packed({{numberPair(5, 0xdeadbeef, type)}}));
    }
}

TEST_F(Encode, HidesPasswordsOfEveryLengthByBlocks) {
    for (const size_t length : {1U, 15U, 16U, 17U, 128U, 240U}) {
        const std::string password(length, 'p');
        const Bytes attribute = packed({{textPair(2, password)}});
        EXPECT_BYTES_EQ(hidePassword(password, fromHex(example::kAuthenticator), kSecret),
                        ByteView(attribute).subspan(2));
    }
    EXPECT_EQ(34U, packed({{textPair(2, std::string(17, 'p'))}}).size());
}

TEST_F(Encode, MakesAnEmptyPasswordAnAttributeWithoutBlocks) {
    const PairRecords pairs({textPair(2, "")});
    const size_t allocationsBefore = allocationCount();
    EXPECT_BYTES_EQ("0202"_hex, packed(pairs));
    EXPECT_EQ(allocationsBefore, allocationCount());
}

TEST_F(Encode, DecidesByTheNumberBeforeTheType) {
    const Bytes attribute = packed({{numberPair(2, 0, 7)}});
    EXPECT_BYTES_EQ("0202"_hex, attribute);
    EXPECT_EQ(18U, packed({{numberPair(80, 0, 7)}}).size());
}

TEST_F(Encode, FailsWithoutALogWhenMemoryIsExhausted) {
    const PairRecords pairs({textPair(2, "arctangent")});
    const LogRecorder log;
    const unsigned failures = forEachFailingAllocation([&] {
        Packet packet(kHeaderSize + 18);
        const int status = radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret);
        EXPECT_EQ(allocationFailed() ? -1 : 0, status);
    });
    EXPECT_EQ(2U, failures);
    EXPECT_PROBLEMS(log);
}

using PackList = PackerTest;

TEST_F(PackList, PacksTheRequestOfTheRfc) {
    const PairRecords pairs(example::requestPairs());
    EXPECT_EQ(36U, measured(pairs.list()));
    Packet packet(56);
    EXPECT_EQ(0, radPackList(pairs.list(), RAD_PACK, packet.get(), example::kSecret));
    EXPECT_BYTES_EQ(fromHex(example::kRequest), packet.bytes());
}

TEST_F(PackList, NamesEachAttributeWhenItPacksAndNoneWhenItMeasures) {
    const PairRecords pairs(example::requestPairs());
    const LogRecorder log;
    EXPECT_EQ(36U, measured(pairs.list()));
    EXPECT_LOG(log);
    Packet packet(56);
    EXPECT_EQ(0, radPackList(pairs.list(), RAD_PACK, packet.get(), example::kSecret));
    EXPECT_LOG(log, "trace radPackList> Packing attribute: User-Name",
               "trace radPackList> Packing attribute: User-Password",
               "trace radPackList> Packing attribute: NAS-IP-Address",
               "trace radPackList> Packing attribute: NAS-Port");
}

TEST_F(PackList, RefusesMissingArguments) {
    const PairRecords pairs({textPair(1, "nemo")});
    Packet packet(kHeaderSize + 6);
    uint32_t total = 12345;
    const char *const noSecret = nullptr;
    const LogRecorder log;
    EXPECT_EQ(-1, radPackList(nullptr, RAD_PACK_MEASURE, &total));
    EXPECT_EQ(12345U, total);
    EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK_MEASURE, nullptr));
    EXPECT_EQ(-1, radPackList(nullptr, RAD_PACK, packet.get(), kSecret));
    EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK, nullptr, kSecret));
    EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK, packet.get(), noSecret));
    EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK_MEASURE + RAD_PACK + 1, packet.get(), kSecret))
        << "no mode";
    EXPECT_BYTES_EQ(Bytes(6, kUntouched), packet.attributes());
    EXPECT_LOG(log);
}

TEST_F(PackList, LeavesPairsOfAnUnknownTypeOut) {
    const RadPair unknown = numberPair(99, 1, 7);
    const RadPair text = textPair(1, "nemo");
    const RadPair number = numberPair(5, 3);
    const Bytes both = "01066e656d6f 050600000003"_hex;
    EXPECT_BYTES_EQ(both, packed({{unknown, text, number}}));
    EXPECT_BYTES_EQ(both, packed({{text, unknown, number}}));
    EXPECT_BYTES_EQ(both, packed({{text, unknown, unknown, number}}));
    // The last one has no room at all; an inaccessible page follows the packet.
    EXPECT_BYTES_EQ(both, packed({{text, number, unknown}}));
    EXPECT_BYTES_EQ(both, packed({{text, number, unknown, unknown}}));
    EXPECT_BYTES_EQ(Bytes{}, packed({{unknown}}));
}

TEST_F(PackList, SignsOverThePacketAsFarAsItIsPacked) {
    const PairRecords pairs({textPair(1, "nemo"), textPair(80, std::string(16, '\x55'))});
    Packet packet(kHeaderSize + 6 + 18);
    EXPECT_EQ(0, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret));
    EXPECT_TRUE(messageAuthenticatorIsValid(packet.bytes(), kSecret));
    EXPECT_THAT(attributeTypes(packet.bytes()), ElementsAre(1, 80));
}

TEST_F(PackList, NeverWritesBeyondThePacket) {
    const std::vector<std::vector<RadPair>> lists = {
        {textPair(1, "nemo"), textPair(2, "arctangent")},
        {textPair(1, "nemo"), textPair(80, std::string(16, '\0'))},
        {textPair(1, "nemo"), numberPair(5, 3)},
        {textPair(1, "nemo"), textPair(18, "Hello")},
    };
    for (const auto &list : lists) {
        const PairRecords pairs(list);
        const uint32_t total = measured(pairs.list());
        for (uint32_t room = 0; room < total; ++room) {
            Packet packet(kHeaderSize + room);
            EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret)) << room;
        }
    }
}

TEST_F(PackList, HasNoRoomInAPacketWhoseLengthFieldIsTooShortForAHeader) {
    const PairRecords pairs({textPair(1, "nemo")});
    for (const uint8_t length : std::initializer_list<uint8_t>{0, 10, 19, 20, 21}) {
        Packet packet(kHeaderSize + 1);
        packet.get()->length[1] = length;
        EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret));
    }
}

// What a pack hook was called with.
struct PackCall {
    int attrNum;
    bool measuring;
    bool operator==(const PackCall &) const = default;
};

TEST_F(PackList, CallsTheHookForEveryPairWithoutPlacesWhileItMeasures) {
    const PairRecords pairs({textPair(1, "nemo"), numberPair(5, 3)});
    std::vector<PackCall> calls;
    Packet packet(kHeaderSize + 12);
    const uint8_t *const attributes = packet.attributes().data();
    const Hooks hooks([&](const uint8_t *value, uint8_t *length, const RadPair *pair,
                          const char *secret, const RadPacket *request) {
        EXPECT_NE(nullptr, length);
        if (value == nullptr) {
            EXPECT_EQ(nullptr, secret);
            EXPECT_EQ(nullptr, request);
        } else {
            const size_t offset = pair->attrNum == 1 ? 0 : 6;
            EXPECT_EQ(attributes + offset + 2, value);
            EXPECT_EQ(attributes + offset + 1, length);
            EXPECT_EQ(pair->attrNum, attributes[offset]) << "the type byte is written before";
            EXPECT_STREQ(kSecret, secret);
            EXPECT_EQ(packet.get(), request);
        }
        calls.push_back({pair->attrNum, value == nullptr});
        return 1;
    });
    EXPECT_EQ(12U, measured(pairs.list()));
    EXPECT_THAT(calls, ElementsAre(PackCall{1, true}, PackCall{5, true}));
    calls.clear();
    EXPECT_EQ(0, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret));
    EXPECT_THAT(calls, ElementsAre(PackCall{1, false}, PackCall{5, false}));
    EXPECT_BYTES_EQ("01066e656d6f 050600000003"_hex, packet.attributes());
}

TEST_F(PackList, HookFindsTheTypeInFrontOfTheLength_MeasuringAndPacking) {
    const PairRecords pairs({textPair(1, "nemo"), numberPair(5, 3), textPair(255, "end")});
    std::vector<int> types;
    const Hooks hooks([&](const uint8_t * /*value*/, const uint8_t *length,
                          const RadPair * /*pair*/, const char * /*secret*/,
                          RadPacket * /*request*/) {
        types.push_back(*(length - 1));
        EXPECT_EQ(0, *length);
        return 1;
    });
    Packet packet(kHeaderSize + measured(pairs.list()));
    EXPECT_THAT(types, ElementsAre(1, 5, 255));
    types.clear();
    EXPECT_EQ(0, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret));
    EXPECT_THAT(types, ElementsAre(1, 5, 255));
}

TEST_F(PackList, HookThatWritesALongerLength_SignsNoMoreThanThePacket) {
    const PairRecords pairs({textPair(1, "nemo"), textPair(80, std::string(16, '\0'))});
    const Bytes expected = packed(pairs);
    const Hooks hooks([](const uint8_t *value, const uint8_t * /*length*/, const RadPair * /*pair*/,
                         const char * /*secret*/, RadPacket *request) {
        if (value != nullptr) {
            request->length[0] = 0xFF;
            request->length[1] = 0xFF;
        }
        return 1;
    });
    EXPECT_BYTES_EQ(expected, packed(pairs));
}

TEST_F(PackList, TakesWhatTheHookEncodes) {
    const PairRecords pairs(
        {textPair(1, "nemo"), textPair(2, "arctangent"), numberPair(5, 3), textPair(18, "end")});
    const Hooks hooks([](uint8_t *value, uint8_t *length, const RadPair *pair,
                         const char * /*secret*/, RadPacket * /*request*/) {
        if (pair->attrNum == 5) {
            *length = 0;  // left out
            return 0;
        }
        if (pair->attrNum != 2) {
            return 1;
        }
        *length = 5;
        if (value != nullptr) {
            std::copy_n("abc", 3, value);
        }
        return 0;
    });
    EXPECT_BYTES_EQ("01066e656d6f 0205616263 1205656e64"_hex, packed(pairs));
}

TEST_F(PackList, LetsTheHookLeaveTheLastAttributeOut) {
    const PairRecords pairs({textPair(1, "nemo"), numberPair(5, 3)});
    const Hooks hooks([](const uint8_t * /*value*/, uint8_t *length, const RadPair *pair,
                         const char * /*secret*/, RadPacket * /*request*/) {
        if (pair->attrNum != 5) {
            return 1;
        }
        *length = 0;
        return 0;
    });
    EXPECT_BYTES_EQ("01066e656d6f"_hex, packed(pairs));
}

TEST_F(PackList, EndsWithTheHooksOwnErrorAtOnce) {
    const PairRecords pairs({textPair(1, "nemo"), numberPair(5, 3), textPair(18, "end")});
    for (const int error : {-1, 2, 42, -7}) {
        std::vector<int> visited;
        const Hooks hooks([&](const uint8_t * /*value*/, const uint8_t * /*length*/,
                              const RadPair *pair, const char * /*secret*/,
                              RadPacket * /*request*/) {
            visited.push_back(pair->attrNum);
            return pair->attrNum == 5 ? error : 1;
        });
        uint32_t total = 12345;
        EXPECT_EQ(error, radPackList(pairs.list(), RAD_PACK_MEASURE, &total));
        EXPECT_THAT(visited, ElementsAre(1, 5));
        EXPECT_EQ(0U, total);
        visited.clear();
        Packet packet(kHeaderSize + 17);
        EXPECT_EQ(error, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret));
        EXPECT_THAT(visited, ElementsAre(1, 5));
    }
}

TEST_F(PackList, RefusesAHookThatOutgrowsWhatItMeasured) {
    const PairRecords pairs({textPair(1, "nemo")});
    const Hooks hooks([](const uint8_t *value, uint8_t *length, const RadPair * /*pair*/,
                         const char * /*secret*/, RadPacket * /*request*/) {
        *length = value == nullptr ? 6 : 7;
        return 0;
    });
    EXPECT_EQ(6U, measured(pairs.list()));
    Packet packet(kHeaderSize + 6);
    EXPECT_EQ(-1, radPackList(pairs.list(), RAD_PACK, packet.get(), kSecret));
}

TEST_F(PackList, EncodesByItselfWhenTheHookTakesNoPart) {
    const PairRecords pairs({textPair(1, "nemo")});
    const Hooks hooks({}, [](RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/,
                             RadPacket * /*request*/, const char * /*secret*/) { return 1; });
    EXPECT_BYTES_EQ("01066e656d6f"_hex, packed(pairs));
}

}  // namespace
}  // namespace lanyard::test::packer_test
