// Records: what the command line says, as attributes.
#include "tests/unit/tools/lanyardctl/acct_fixture.h"
#include "tools/lanyardctl/attributes.h"

namespace lanyard::test::acct_record_test {
namespace {

using lanyardctl::Failure;
using lanyardctl::Given;
using lanyardctl::kFields;
using lanyardctl::PacketView;
using lanyardctl::Record;
using testing::HasSubstr;

class AcctRecord : public AccountingFixture {
  protected:
    static Given given(const std::string &option, const std::vector<std::string> &values) {
        Given all{.session = "s1", .values = {}, .attributes = {}};
        if (option == "--attribute") {
            all.attributes = values;
        }
        for (size_t i = 0; i < kFields.size(); ++i) {
            if (option == kFields.at(i).option) {
                all.values.at(i) = values;
            }
        }
        return all;
    }

    // A stop with an option, as "Name=value" after what every record has.
    static std::string made(const std::string &option, const std::vector<std::string> &values) {
        const Record record = makeRecord(status("stop"), given(option, values));
        const auto shown = lanyardctl::shownAttributes(PacketView(record.packet).attributes());
        std::string text;
        for (size_t i = 3; i < shown.size(); ++i) {
            text += (text.empty() ? "" : " ") + shown[i].name + "=" + shown[i].value;
        }
        return text;
    }

    static std::string refused(const std::string &option, const std::vector<std::string> &values,
                               int expected = lanyardctl::kRefused) {
        try {
            return "taken: " + made(option, values);
        } catch (const Failure &failure) {
            EXPECT_EQ(expected, failure.status()) << failure.what();
            return failure.what();
        }
    }
};

TEST_F(AcctRecord, BeginsWithStatusSessionAndTime) {
    const time_t before = time(nullptr);
    const Record record = makeRecord(status("interim"), {"s1", {}, {}});
    EXPECT_LE(before, record.made);
    const auto shown = lanyardctl::shownAttributes(PacketView(record.packet).attributes());
    ASSERT_EQ(3U, shown.size());
    EXPECT_EQ("Interim-Update (3)", shown[0].value);
    EXPECT_EQ("\"s1\"", shown[1].value);
    EXPECT_EQ("Event-Timestamp", shown[2].name);
    EXPECT_EQ(lanyardctl::asTime(record.made), shown[2].value);
}

TEST_F(AcctRecord, NewSessionsAreDifferent) {
    EXPECT_EQ(16U, lanyardctl::newSession().size());
    EXPECT_NE(lanyardctl::newSession(), lanyardctl::newSession());
}

TEST_F(AcctRecord, OctetsAbove32Bits_HaveGigawords) {
    EXPECT_EQ("Acct-Input-Octets=0 octets", made("--input-octets", {"0"}));
    EXPECT_EQ("Acct-Input-Octets=4294967295 octets", made("--input-octets", {"4294967295"}));
    EXPECT_EQ("Acct-Input-Octets=0 octets Acct-Input-Gigawords=1 x 4 GiB",
              made("--input-octets", {"4294967296"}));
    EXPECT_EQ("Acct-Output-Octets=4294967295 octets Acct-Output-Gigawords=4294967295 x 4 GiB",
              made("--output-octets", {"18446744073709551615"}));
}

TEST_F(AcctRecord, PacketsAbove32Bits_StayAtTheLargest) {
    EXPECT_EQ("Acct-Input-Packets=4294967295 packets", made("--input-packets", {"4294967296"}));
}

TEST_F(AcctRecord, ValuesOfEveryForm) {
    EXPECT_EQ("User-Name=\"0xff\"", made("--user", {"0xff"}));
    EXPECT_EQ("Class=\"gold\" Class=0x00ff", made("--class", {"gold", "0x00ff"}));
    EXPECT_EQ("Framed-IP-Address=192.0.2.7", made("--framed-ip-address", {"192.0.2.7"}));
    EXPECT_EQ("Acct-Session-Time=60 s", made("--session-time", {"60"}));
    EXPECT_EQ("Acct-Terminate-Cause=Idle-Timeout (4)", made("--terminate-cause", {"Idle-Timeout"}));
    EXPECT_EQ("Acct-Terminate-Cause=User-Request (1)", made("--terminate-cause", {"1"}));
    EXPECT_EQ("NAS-Port-Id-Text=\"eth0/1\"", made("--nas-port-id", {"eth0/1"}));
    EXPECT_EQ("Service-Type=Framed-User (2) Filter-Id=\"a=b\" NAS-Port-Id=7",
              made("--attribute", {"Service-Type=Framed-User", "Filter-Id=a=b", "5=7"}));
}

TEST_F(AcctRecord, AttributesOfVendors_AreGivenByTheirNames) {
    EXPECT_EQ("WISPr-Location-Name=\"lobby\"", made("--attribute", {"WISPr-Location-Name=lobby"}));
    EXPECT_EQ("WISPr-Bandwidth-Max-Up=64000 bit/s",
              made("--attribute", {"WISPr-Bandwidth-Max-Up=64000"}));
    EXPECT_EQ("MS-Primary-DNS-Server=192.0.2.1",
              made("--attribute", {"MS-Primary-DNS-Server=192.0.2.1"}));
    ASSERT_EQ(0, radDictAddValue("Vendor-Specific Acme 4711"));
    ASSERT_EQ(0, radDictAddValue("Acme Acme-Door 7"));
    EXPECT_EQ("Acme-Door=\"west\"", made("--attribute", {"Acme-Door=west"}));
    const std::string most(247, 'w');
    EXPECT_EQ("Acme-Door=\"" + most + "\"", made("--attribute", {"Acme-Door=" + most}));
    EXPECT_EQ("Acme-Door: takes 1 to 247 bytes",
              refused("--attribute", {"Acme-Door=" + most + "w"}));
}

TEST_F(AcctRecord, WrongValues_AreRefusedWithTheReason) {
    EXPECT_EQ("--input-octets: '-1' is no whole number from 0 to 18446744073709551615",
              refused("--input-octets", {"-1"}));
    EXPECT_EQ(
        "--input-octets: '18446744073709551616' is no whole number from 0 to "
        "18446744073709551615",
        refused("--input-octets", {"18446744073709551616"}));
    EXPECT_THAT(refused("--session-time", {"4294967296"}),
                HasSubstr("'4294967296' is no whole number from 0 to 4294967295"));
    EXPECT_THAT(refused("--terminate-cause", {"Boredom"}),
                HasSubstr("'Boredom' is no whole number from 0 to 4294967295, or one of "
                          "User-Request, Lost-Carrier, "));
    EXPECT_EQ("--framed-ip-address: '192.0.2' is no IPv4 address",
              refused("--framed-ip-address", {"192.0.2"}));
    EXPECT_EQ("--class: '0x0' is not 0x and pairs of hexadecimal digits",
              refused("--class", {"0x0"}));
    EXPECT_EQ("--class: '0xgg' is not 0x and pairs of hexadecimal digits",
              refused("--class", {"0xgg"}));
    EXPECT_EQ("--class: takes 1 to 253 bytes", refused("--class", {"0x"}));
    EXPECT_EQ("--user: takes 1 to 253 bytes", refused("--user", {""}));
    EXPECT_EQ("--user: takes 1 to 253 bytes", refused("--user", {std::string(254, 'u')}));
    EXPECT_EQ("User-Name=\"" + std::string(253, 'u') + "\"",
              made("--user", {std::string(253, 'u')}));
}

TEST_F(AcctRecord, AttributesThatCannotBeGiven_AreRefused) {
    EXPECT_EQ("the dictionary has no attribute 'Door'",
              refused("--attribute", {"Door=1"}, lanyardctl::kNotFound));
    EXPECT_EQ("--attribute: 'Door' is not NAME=VALUE", refused("--attribute", {"Door"}));
    EXPECT_EQ("--attribute: User-Name has an option of its own, --user",
              refused("--attribute", {"User-Name=x"}));
    EXPECT_EQ("--attribute: Password has no place in accounting",
              refused("--attribute", {"Password=x"}));
    EXPECT_EQ("--attribute: NAS-Identifier is the library's to set",
              refused("--attribute", {"NAS-Identifier=x"}));
    EXPECT_EQ("--attribute: Acct-Delay-Time is set when the record is sent",
              refused("--attribute", {"Acct-Delay-Time=1"}));
}

TEST_F(AcctRecord, MoreThanAPacketHolds_IsRefused) {
    const std::vector<std::string> most(15, "Filter-Id=" + std::string(253, 'f'));
    EXPECT_THAT(made("--attribute", most), HasSubstr("Filter-Id"));
    const std::vector<std::string> more(17, "Filter-Id=" + std::string(253, 'f'));
    EXPECT_EQ("the record has more attributes than one packet holds", refused("--attribute", more));
}

}  // namespace
}  // namespace lanyard::test::acct_record_test
