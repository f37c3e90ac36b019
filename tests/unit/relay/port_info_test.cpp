// What a record says about the port of its supplicant, as attributes of the request.
#include "tests/support/test.h"
#include "tests/unit/relay/in_flight_fixture.h"

namespace lanyard::test::port_info_test {
namespace {

using testing::IsEmpty;

const Bytes kPacket = identityResponse(7, "alice");

// Whole blocks: the length in front.
Bytes block(const Bytes &elements) {
    const size_t size = elements.size() + 2;
    return concatenate(
        {Bytes{static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)}, elements});
}

Bytes nameElement(ByteView name) {
    return concatenate({Bytes{4, static_cast<uint8_t>(name.size() + 2)}, name});
}

const Bytes kSupplicant = "0108 02000000aB01"_hex;
const Bytes kPort = "0208 0200000000fe"_hex;
const Bytes kNumber = "0306 00010203"_hex;
const Bytes kName = nameElement(fromText("eth0"));

// In flight or one at a time.
class PortInfo : public InFlightTest, public testing::WithParamInterface<int> {
  protected:
    PortInfo() {
        setLimit(GetParam());
        server.otherwise(reject(signedAttributes()));
    }

    // Expects a record with that behind its payload to become a request with these attributes.
    void expectRequest(const Bytes &behind, const Attributes &expected) {
        const size_t before = server.requestCount();
        bus.sent.clear();
        serve({handWith(1, kPacket, behind), awaitSent(1)});
        Attributes all = Attributes()
                             .addText(1, "alice")
                             .add(79, kPacket)
                             .addInteger(6, 2)
                             .addInteger(12, 1420)
                             .addRaw(expected.bytes())
                             .addAddress(4, kDeviceAddress);
        ASSERT_EQ(before + 1, server.requestCount());
        expectAccessRequest(server.request(before), kSecret, all);
    }
    void expectNone(const Bytes &behind) { expectRequest(behind, {}); }

    static Attributes ethernet() { return Attributes().addInteger(61, 15); }
};

TEST_P(PortInfo, WholeBlock_IsAddedAfterTheMtu) {
    expectRequest(block(concatenate({kSupplicant, kPort, kNumber, kName})),
                  Attributes()
                      .addInteger(5, 0x00010203)
                      .addInteger(61, 15)
                      .addText(87, "eth0")
                      .addText(31, "02-00-00-00-AB-01")
                      .addText(30, "02-00-00-00-00-FE"));
}

TEST_P(PortInfo, OrderOfElements_DoesNotMatter) {
    expectRequest(block(concatenate({kName, kNumber, kPort, kSupplicant})),
                  Attributes()
                      .addInteger(5, 0x00010203)
                      .addInteger(61, 15)
                      .addText(87, "eth0")
                      .addText(31, "02-00-00-00-AB-01")
                      .addText(30, "02-00-00-00-00-FE"));
}

TEST_P(PortInfo, EachElementAlone_ComesWithThePortType) {
    expectRequest(block({}), ethernet());
    expectRequest(block(kNumber), Attributes().addInteger(5, 0x00010203).addInteger(61, 15));
    expectRequest(block(kName), ethernet().addText(87, "eth0"));
    expectRequest(block(kSupplicant), ethernet().addText(31, "02-00-00-00-AB-01"));
    expectRequest(block(kPort), ethernet().addText(30, "02-00-00-00-00-FE"));
}

TEST_P(PortInfo, LongestName_IsWhole) {
    const Bytes name(253, 'n');
    expectRequest(block(nameElement(name)), ethernet().add(87, name));
    expectRequest(block(concatenate({kSupplicant, kPort, kNumber, nameElement(name)})),
                  Attributes()
                      .addInteger(5, 0x00010203)
                      .addInteger(61, 15)
                      .add(87, name)
                      .addText(31, "02-00-00-00-AB-01")
                      .addText(30, "02-00-00-00-00-FE"));
}

TEST_P(PortInfo, ElementsThatSayNothing_AreSkipped) {
    expectRequest(block(nameElement({})), ethernet());
    expectRequest(block("0107 0200000000"_hex), ethernet());  // an address of five bytes
    expectRequest(block("0304 0001"_hex), ethernet());        // a number of two
    expectRequest(block(concatenate({"ff02 0903aa"_hex, kName})), ethernet().addText(87, "eth0"));
}

TEST_P(PortInfo, NoBlockOrAMalformedOne_AddsNothing) {
    const Bytes whole = block(kName);
    expectNone({});
    expectNone("00"_hex);
    expectNone("0000"_hex);
    expectNone(Bytes(whole.begin(), whole.end() - 1));
    expectNone(concatenate({whole, "00"_hex}));
    expectNone(block("04"_hex));
    expectNone(block("0400"_hex));
    expectNone(block("0401"_hex));
    expectNone(block("0407 65746830"_hex));
    expectNone(block(concatenate({kName, "04"_hex})));
    expectNone(Bytes(1000, 0));
    expectNone(block(Bytes(1000, 0)));
}

TEST_P(PortInfo, LatestRecordOfAConversation_Counts) {
    server.otherwise(challenge(eapMessage(eapRequest(8, 22), Attributes().addText(24, "state"))));
    const auto types = [this](size_t index) { return attributeTypes(server.request(index)); };
    serve({handWith(1, kPacket, block(kName)), awaitSent(1),
           handWith(1, eapResponse(8, 22), block(kNumber)), awaitSent(2),
           hand(1, eapResponse(9, 22)), awaitSent(3)});
    ASSERT_EQ(3U, server.requestCount());
    EXPECT_THAT(types(0), testing::Contains(87));
    EXPECT_THAT(types(1), testing::Not(testing::Contains(87)));
    EXPECT_THAT(types(1), testing::Contains(5));
    EXPECT_THAT(types(2), testing::Not(testing::Contains(testing::AnyOf(5, 61, 87))));
}

TEST_P(PortInfo, BesideATooLongPayload_IsNotRead) {
    serve({perform([] {
        EXPECT_EQ(0, deliver(kPacketCommand, busRecord(1, kPacket, kReplyCommand, 5000)));
        EXPECT_THAT(conversations(), IsEmpty());
    })});
}

INSTANTIATE_TEST_SUITE_P(Modes, PortInfo, testing::Values(1, 64), [](const auto &limit) {
    return limit.param == 1 ? "OneAtATime" : "InFlight";
});

}  // namespace
}  // namespace lanyard::test::port_info_test
