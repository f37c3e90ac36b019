// Display of one pair.
#include <array>
#include <cstdio>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/attr/attr_test.h"

namespace lanyard::test::show_test {
namespace {

using testing::ElementsAre;

// What bytes look like: two digits below 0x80, eight from there on.
std::string shownInHex(ByteView bytes) {
    std::string text = "0x";
    for (const uint8_t byte : bytes) {
        text += (byte >= 0x80 ? "ffffff" : "") + toHex({&byte, 1});
    }
    return text;
}

class ShowTest : public AttrTest {
  protected:
    // What radPairShow() leaves on standard output.
    static std::string shown(const RadPair *pair) {
        StdoutCapture output;
        EXPECT_EQ(0, radPairShow(pair));
        return output.finish();
    }

    std::string shownString(int attrNum, ByteView value) {
        const PairList pair(radPairNew(attrNum, value.data(), static_cast<int>(value.size())));
        log_.clear();
        std::string text = shown(pair.get());
        EXPECT_LOG(log_);
        return text;
    }

    std::vector<std::string> shownNumber(int attrNum, uint32_t number) {
        const PairList pair(radPairNew(attrNum, &number, 4));
        log_.clear();
        EXPECT_EQ("", shown(pair.get()));
        return log_.log();
    }
};

TEST_F(ShowTest, NothingIsNoPair) {
    StdoutCapture output;
    EXPECT_EQ(-1, radPairShow(nullptr));
    EXPECT_EQ("", output.finish());
    EXPECT_LOG(log_);
}

TEST_F(ShowTest, AttributeThatTheDictionaryDoesNotKnow) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, "x", 1));
    for (const int32_t attrNum : {0, 17, 255, 1000, -1}) {
        pair->attrNum = attrNum;
        log_.clear();
        EXPECT_EQ("", shown(pair.get()));
        EXPECT_LOG(log_, "error radPairShow> Unknown-Attribute[" + std::to_string(attrNum) + "]:");
    }
}

TEST_F(ShowTest, NumbersGoToTheLogWithTheNameOfTheValue) {
    EXPECT_THAT(shownNumber(RAD_ATTR_SERVICE_TYPE, 2),
                ElementsAre("packet radPairShow> Service-Type: Framed-User"));
    EXPECT_THAT(shownNumber(10, 0), ElementsAre("packet radPairShow> Framed-Routing: None"));
}

TEST_F(ShowTest, NumbersWithoutANameAreShownAsSuch) {
    EXPECT_THAT(shownNumber(RAD_ATTR_SERVICE_TYPE, 99),
                ElementsAre("packet radPairShow> Service-Type: 99"));
    EXPECT_THAT(shownNumber(RAD_ATTR_SESSION_TIMEOUT, 4294967295U),
                ElementsAre("packet radPairShow> Session-Timeout: 4294967295"));
    EXPECT_THAT(shownNumber(RAD_ATTR_FRAMED_MTU, 2147483648U),
                ElementsAre("packet radPairShow> Framed-MTU: 2147483648"));
}

TEST_F(ShowTest, AddressesAndDatesAreNumbers) {
    EXPECT_THAT(shownNumber(RAD_ATTR_NAS_IP_ADDRESS, 0x7f000001),
                ElementsAre("packet radPairShow> NAS-IP-Address: 2130706433"));
    ASSERT_EQ(0, radDictAddAttr("Event-Timestamp 55 date"));
    ASSERT_EQ(0, radDictAddValue("Event-Timestamp Epoch 0"));
    EXPECT_THAT(shownNumber(55, 1), ElementsAre("packet radPairShow> Event-Timestamp: 1"));
    EXPECT_THAT(shownNumber(55, 0), ElementsAre("packet radPairShow> Event-Timestamp: Epoch"));
}

TEST_F(ShowTest, StringsArePrintedInHexadecimal) {
    EXPECT_EQ("User-Name: 0x6e656d6f\n", shownString(RAD_ATTR_USER_NAME, fromText("nemo")));
    EXPECT_EQ("State: 0x01ffffffff\n", shownString(RAD_ATTR_STATE, "01ff"_hex));
    EXPECT_EQ("State: 0x007fffffff80\n", shownString(RAD_ATTR_STATE, "007f80"_hex));
}

TEST_F(ShowTest, EveryByteHasItsDigits) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        std::array<char, 16> digits{};
        (void)std::snprintf(digits.data(), digits.size(), byte < 0x80 ? "%02x" : "ffffff%02x",
                            byte);
        EXPECT_EQ(std::string("State: 0x") + digits.data() + "\n",
                  shownString(RAD_ATTR_STATE, Bytes{static_cast<uint8_t>(byte)}));
    }
}

TEST_F(ShowTest, ReplyMessageIsPrintedAsText) {
    EXPECT_EQ("Reply-Message: Hello, nemo\n",
              shownString(RAD_ATTR_REPLY_MESSAGE, fromText("Hello, nemo")));
    EXPECT_EQ("Reply-Message: two\nlines\n",
              shownString(RAD_ATTR_REPLY_MESSAGE, fromText("two\nlines")));
    EXPECT_EQ("Reply-Message: 100 %s %n %d\n",
              shownString(RAD_ATTR_REPLY_MESSAGE, fromText("100 %s %n %d")));
    EXPECT_EQ("Reply-Message: \xc3\xa4\xff\n",
              shownString(RAD_ATTR_REPLY_MESSAGE, fromText("\xc3\xa4\xff")));
}

TEST_F(ShowTest, NulInAReplyMessageAddsNothing) {
    EXPECT_EQ("Reply-Message: Hello\n",
              shownString(RAD_ATTR_REPLY_MESSAGE, "00 4865 00 00 6c6c6f 00"_hex));
    EXPECT_EQ("Reply-Message: \n", shownString(RAD_ATTR_REPLY_MESSAGE, "00"_hex));
}

TEST_F(ShowTest, EmptyValuesAreShown) {
    const PairList state(radPairNew(RAD_ATTR_STATE, "", 0));
    EXPECT_EQ("State: 0x\n", shown(state.get()));
    const PairList message(radPairNew(RAD_ATTR_REPLY_MESSAGE, "", 0));
    EXPECT_EQ("Reply-Message: \n", shown(message.get()));
}

TEST_F(ShowTest, NoMoreThanTheStoredLengthIsShown) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, "arctangent", 10));
    ASSERT_EQ(0, radPairAssign(pair.get(), "ne", 2));
    EXPECT_EQ("State: 0x6e65\n", shown(pair.get()));
    pair->attrNum = RAD_ATTR_REPLY_MESSAGE;
    pair->numValue = 1;
    EXPECT_EQ("State: n\n", shown(pair.get()));
}

TEST_F(ShowTest, FullValuesAreShownWhole) {
    EXPECT_EQ("Reply-Message: " + std::string(253, 'a') + "\n",
              shownString(RAD_ATTR_REPLY_MESSAGE, Bytes(253, 'a')));
    EXPECT_EQ("State: " + shownInHex(Bytes(253, 0xff)) + "\n",
              shownString(RAD_ATTR_STATE, Bytes(253, 0xff)));
}

TEST_F(ShowTest, CutTextIsShownAsFarAsItIsHeld) {
    const std::string text(300, 'a');
    const PairList state(radPairNew(RAD_ATTR_STATE, text.c_str(), -1));
    EXPECT_EQ("State: " + shownInHex(Bytes(253, 'a')) + "\n", shown(state.get()));
    const PairList message(radPairNew(RAD_ATTR_REPLY_MESSAGE, text.c_str(), -1));
    EXPECT_EQ("Reply-Message: " + std::string(253, 'a') + "\n", shown(message.get()));
    message->numValue = UINT32_MAX;
    EXPECT_EQ("Reply-Message: " + std::string(253, 'a') + "\n", shown(message.get()));
}

TEST_F(ShowTest, BlankAfterANameOf32CharactersIsCut) {
    const std::string name(32, 'N');
    ASSERT_EQ(0, radDictAddAttr((name + " 200 string").c_str()));
    EXPECT_EQ(name + ":0x01\n", shownString(200, "01"_hex));
    // The longest line that there is.
    EXPECT_EQ(name + ":" + shownInHex(Bytes(253, 0x80)) + "\n", shownString(200, Bytes(253, 0x80)));
    const std::string shorter(31, 'N');
    ASSERT_EQ(0, radDictAddAttr((shorter + " 201 string").c_str()));
    EXPECT_EQ(shorter + ": 0x01\n", shownString(201, "01"_hex));
    // In the log the blank stays.
    ASSERT_EQ(0, radDictAddAttr((name + " 202 integer").c_str()));
    EXPECT_THAT(shownNumber(202, 5), ElementsAre("packet radPairShow> " + name + ": 5"));
}

TEST_F(ShowTest, UnknownTypesArePrintedLikeStrings) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, "nemo", 4));
    for (const int32_t type : {kUnknownType, 4, -1}) {
        pair->type = type;
        EXPECT_EQ("State: 0x6e656d6f\n", shown(pair.get()));
    }
    const PairList message(radPairNew(RAD_ATTR_REPLY_MESSAGE, "nemo", 4));
    message->type = kUnknownType;
    EXPECT_EQ("Reply-Message: nemo\n", shown(message.get()));
    EXPECT_LOG(log_);
}

TEST_F(ShowTest, ReplyMessageThatIsANumberGoesToTheLog) {
    ASSERT_EQ(0, radDictAddAttr("Reply-Number 18 integer"));
    EXPECT_THAT(shownNumber(RAD_ATTR_REPLY_MESSAGE, 3),
                ElementsAre("packet radPairShow> Reply-Number: 3"));
}

}  // namespace
}  // namespace lanyard::test::show_test
