// Single definitions, and looking them up.
#include <string>
#include <vector>

#include "tests/support/test.h"
#include "tests/unit/dict/dict_fixture.h"

namespace lanyard::test::definitions_test {
namespace {

using testing::ElementsAre;

const std::string kName32(32, 'n');
const std::string kName33(33, 'n');
const std::string kName34(34, 'v');
const std::string kName35(35, 'v');

class AttributeDefinition : public DictTest {
  protected:
    void expectRefused(const std::string &line, const std::string &message) {
        SCOPED_TRACE(line);
        log.clear();
        EXPECT_EQ(-1, radDictAddAttr(line.c_str()));
        EXPECT_THAT(log.lines(), ElementsAre(Logged(7, 8, "radDictAddAttr", message)));
        EXPECT_EQ(0U, liveBlocks());
    }
};

class ValueDefinition : public DictTest {
  protected:
    void expectRefused(const std::string &line, const std::string &message) {
        SCOPED_TRACE(line);
        log.clear();
        EXPECT_EQ(-1, radDictAddValue(line.c_str()));
        EXPECT_THAT(log.lines(), ElementsAre(Logged(7, 8, "radDictAddValue", message)));
        EXPECT_EQ(0U, liveBlocks());
    }
};

TEST_F(AttributeDefinition, HasANumberOfAnySize) {
    EXPECT_EQ(0, radDictAddAttr("Foo 300 string"));
    EXPECT_EQ(0, radDictAddAttr("Bar 2147483647 integer"));
    EXPECT_EQ(0, radDictAddAttr("Baz 0 date"));
    EXPECT_EQ(0, radDictAddAttr("Qux 255 ipaddr"));
    EXPECT_EQ(0, radDictAddAttr("Quux 256 ipaddr"));
    EXPECT_LOG(log);
    const std::vector<RadDictAttr> expected = {{"Foo", 300, 0, nullptr},
                                               {"Bar", 2147483647, 1, nullptr},
                                               {"Baz", 0, 3, nullptr},
                                               {"Qux", 255, 2, nullptr},
                                               {"Quux", 256, 2, nullptr}};
    for (const RadDictAttr &entry : expected) {
        SCOPED_TRACE(entry.name);
        const RadDictAttr *found = radDictGetAttr(entry.attrNum);
        ASSERT_NE(nullptr, found);
        EXPECT_STREQ(entry.name, found->name);
        EXPECT_EQ(entry.attrNum, found->attrNum);
        EXPECT_EQ(entry.type, found->type);
    }
    EXPECT_EQ(nullptr, radDictGetAttr(44));  // 300 in a byte
    EXPECT_EQ(nullptr, radDictGetAttr(-1));
}

TEST_F(AttributeDefinition, IsSplitAtBlanksTabsAndNewlines) {
    EXPECT_EQ(0, radDictAddAttr(" \t Foo\t\t5\n string \n"));
    EXPECT_EQ(0, radDictAddAttr("Bar 6 integer and more that nobody reads"));
    ASSERT_NE(nullptr, radDictGetAttr(5));
    EXPECT_STREQ("Foo", radDictGetAttr(5)->name);
    EXPECT_EQ(RAD_TYPE_STRING, radDictGetAttr(5)->type);
    ASSERT_NE(nullptr, radDictGetAttr(6));
    EXPECT_STREQ("Bar", radDictGetAttr(6)->name);
    EXPECT_EQ(RAD_TYPE_INTEGER, radDictGetAttr(6)->type);
}

TEST_F(AttributeDefinition, HasTheNumberThatTheWordStartsWith) {
    EXPECT_EQ(0, radDictAddAttr("Foo 7x string"));
    EXPECT_EQ(0, radDictAddAttr("Bar 0008 string"));
    EXPECT_NE(nullptr, radDictGetAttr(7));
    EXPECT_NE(nullptr, radDictGetAttr(8));
}

TEST_F(AttributeDefinition, IsReadWithinItsText) {
    const GuardedBuffer line(fromText(std::string("Foo 300 string") + '\0'));
    EXPECT_EQ(0, radDictAddAttr(reinterpret_cast<const char *>(line.data())));
    EXPECT_NE(nullptr, radDictGetAttr(300));
}

TEST_F(AttributeDefinition, HidesAnEarlierOneOfTheSameNumber) {
    EXPECT_EQ(0, radDictAddAttr("First 9 string"));
    EXPECT_EQ(0, radDictAddAttr("Large 900 string"));
    EXPECT_EQ(0, radDictAddAttr("Second 9 integer"));
    EXPECT_EQ(0, radDictAddAttr("Larger 900 integer"));
    const RadDictAttr *found = radDictGetAttr(9);
    ASSERT_NE(nullptr, found);
    EXPECT_STREQ("Second", found->name);
    EXPECT_EQ(RAD_TYPE_INTEGER, found->type);
    ASSERT_NE(nullptr, found->next);
    EXPECT_STREQ("Large", found->next->name);
    ASSERT_NE(nullptr, radDictGetAttr(900));
    EXPECT_STREQ("Larger", radDictGetAttr(900)->name);
}

TEST_F(AttributeDefinition, NeedsThreeWords) {
    expectRefused("", "radDictAddAttr: Invalid Attribute in: \n");
    expectRefused(" \t\n", "radDictAddAttr: Invalid Attribute in:  \t\n\n");
    expectRefused("Foo", "radDictAddAttr: Invalid Attribute in: Foo\n");
    expectRefused("Foo 1", "radDictAddAttr: Invalid Attribute in: Foo\n");
    expectRefused("\tFoo 1 \n", "radDictAddAttr: Invalid Attribute in: \tFoo\n");
}

TEST_F(AttributeDefinition, NeedsALine) {
    EXPECT_EQ(-1, radDictAddAttr(nullptr));
    EXPECT_LOG(log);
}

TEST_F(AttributeDefinition, HasANameOfAtMost32Characters) {
    EXPECT_EQ(0, radDictAddAttr((kName32 + " 1 string").c_str()));
    ASSERT_NE(nullptr, radDictGetAttr(1));
    EXPECT_EQ(kName32, radDictGetAttr(1)->name);
    EXPECT_EQ(0, radDictUnload());
    expectRefused(kName33 + " 1 string",
                  "radDictAddAttr: Attribute Name Too Long in: " + kName33 + "\n");
    // The name is looked at before the number, and the number before the type.
    expectRefused(kName33 + " x octets",
                  "radDictAddAttr: Attribute Name Too Long in: " + kName33 + "\n");
}

TEST_F(AttributeDefinition, HasANumberThatStartsWithADigit) {
    expectRefused("Foo x1 string", "radDictAddAttr: Invalid Attribute Number in: Foo\n");
    expectRefused("Foo -1 string", "radDictAddAttr: Invalid Attribute Number in: Foo\n");
    expectRefused("Foo +1 string", "radDictAddAttr: Invalid Attribute Number in: Foo\n");
    expectRefused("Foo x1 octets", "radDictAddAttr: Invalid Attribute Number in: Foo\n");
    expectRefused("Foo \xb2 string", "radDictAddAttr: Invalid Attribute Number in: Foo\n");
}

TEST_F(AttributeDefinition, HasOneOfFourTypes) {
    for (const char *type : {"octets", "String", "strin", "strings", "integer8", "dates", "0"}) {
        expectRefused(std::string("Foo 1 ") + type,
                      "radDictAddAttr: Invalid Attribute Type in: Foo\n");
    }
}

TEST_F(AttributeDefinition, FailsWithoutMemory) {
    failAllocation(1);
    EXPECT_EQ(-1, radDictAddAttr("Foo 1 string"));
    EXPECT_LOG(log);
    EXPECT_EQ(0U, liveBlocks());

    failAllocation(2);
    EXPECT_EQ(-1, radDictAddAttr("Foo 1 string"));
    EXPECT_LOG(log, "critical radDictAddAttr: out of memory");
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(nullptr, radDictGetAttr(1));

    failAllocation(3);
    EXPECT_EQ(0, radDictAddAttr("Foo 1 string"));
    EXPECT_FALSE(allocationFailed());
    EXPECT_EQ(1U, liveBlocks());
}

TEST_F(ValueDefinition, NeedsNoAttributeOfThatName) {
    EXPECT_EQ(0, radDictAddValue("Foo Bar 7"));
    EXPECT_LOG(log);
    const RadDictValue *found = radDictGetVal(7, "Foo");
    ASSERT_NE(nullptr, found);
    EXPECT_STREQ("Foo", found->attrName);
    EXPECT_STREQ("Bar", found->valueName);
    EXPECT_EQ(7, found->value);
    EXPECT_EQ(nullptr, found->next);
    EXPECT_EQ(nullptr, radDictGetVal(6, "Foo"));
    EXPECT_EQ(nullptr, radDictGetVal(7, "Bar"));
}

TEST_F(ValueDefinition, HasTheNumberThatTheWordStartsWith) {
    EXPECT_EQ(0, radDictAddValue("Service-Type Framed-User 0002"));
    EXPECT_EQ(0, radDictAddValue("\tService-Type\tLogin-User\t 1x rest\n"));
    ASSERT_NE(nullptr, radDictGetVal(2, "Service-Type"));
    EXPECT_STREQ("Framed-User", radDictGetVal(2, "Service-Type")->valueName);
    ASSERT_NE(nullptr, radDictGetVal(1, "Service-Type"));
    EXPECT_STREQ("Login-User", radDictGetVal(1, "Service-Type")->valueName);
}

TEST_F(ValueDefinition, HidesAnEarlierOneOfTheSameNumber) {
    EXPECT_EQ(0, radDictAddValue("Foo First 1"));
    EXPECT_EQ(0, radDictAddValue("Bar Other 1"));
    EXPECT_EQ(0, radDictAddValue("Foo Second 1"));
    const RadDictValue *found = radDictGetVal(1, "Foo");
    ASSERT_NE(nullptr, found);
    EXPECT_STREQ("Second", found->valueName);
    ASSERT_NE(nullptr, found->next);
    EXPECT_STREQ("Other", found->next->valueName);
    ASSERT_NE(nullptr, found->next->next);
    EXPECT_STREQ("First", found->next->next->valueName);
    EXPECT_EQ(nullptr, found->next->next->next);
}

TEST_F(ValueDefinition, NeedsThreeWords) {
    expectRefused("", "radDictAddValue: Invalid Value in: \n");
    expectRefused("Service-Type", "radDictAddValue: Invalid Value in: Service-Type\n");
    expectRefused("Service-Type Framed-User", "radDictAddValue: Invalid Value in: Service-Type\n");
    expectRefused(" Service-Type Framed-User\t\n",
                  "radDictAddValue: Invalid Value in:  Service-Type\n");
}

TEST_F(ValueDefinition, NeedsALine) {
    EXPECT_EQ(-1, radDictAddValue(nullptr));
    EXPECT_LOG(log);
}

TEST_F(ValueDefinition, HasAnAttributeNameOfAtMost32Characters) {
    EXPECT_EQ(0, radDictAddValue((kName32 + " Bar 1").c_str()));
    ASSERT_NE(nullptr, radDictGetVal(1, kName32.c_str()));
    EXPECT_EQ(kName32, radDictGetVal(1, kName32.c_str())->attrName);
    EXPECT_EQ(0, radDictUnload());
    expectRefused(kName33 + " Bar 1",
                  "radDictAddValue: Attribute Name Too Long in: " + kName33 + "\n");
    expectRefused(kName33 + " Bar " + kName33,
                  "radDictAddValue: Attribute Name Too Long in: " + kName33 + "\n");
}

// The message speaks of the name, the limit is put on the number.
TEST_F(ValueDefinition, HasANumberOfAtMost32Characters) {
    EXPECT_EQ(0, radDictAddValue(("Foo Bar " + std::string(31, '0') + "7").c_str()));
    EXPECT_NE(nullptr, radDictGetVal(7, "Foo"));
    EXPECT_EQ(0, radDictUnload());
    expectRefused("Foo Bar " + std::string(32, '0') + "7",
                  "radDictAddValue: Value Name Too Long in: Foo\n");
    // The length is looked at before the digit.
    expectRefused("Foo Bar " + kName33, "radDictAddValue: Value Name Too Long in: Foo\n");
    expectRefused("Foo Bar " + kName32, "radDictAddValue: Invalid Value Number in: Foo\n");
}

TEST_F(ValueDefinition, HasANameThatFitsItsField) {
    EXPECT_EQ(0, radDictAddValue(("Foo " + kName34 + " 1").c_str()));
    ASSERT_NE(nullptr, radDictGetVal(1, "Foo"));
    EXPECT_EQ(kName34, radDictGetVal(1, "Foo")->valueName);
    EXPECT_EQ(0, radDictUnload());
    expectRefused("Foo " + kName35 + " 1", "radDictAddValue: Value Name Too Long in: Foo\n");
    expectRefused("Foo " + std::string(5000, 'v') + " 1",
                  "radDictAddValue: Value Name Too Long in: Foo\n");
}

TEST_F(ValueDefinition, HasANumberThatStartsWithADigit) {
    expectRefused("Foo Bar x1", "radDictAddValue: Invalid Value Number in: Foo\n");
    expectRefused("Foo Bar -1", "radDictAddValue: Invalid Value Number in: Foo\n");
}

TEST_F(ValueDefinition, FailsWithoutMemory) {
    failAllocation(1);
    EXPECT_EQ(-1, radDictAddValue("Foo Bar 1"));
    EXPECT_LOG(log);
    EXPECT_EQ(0U, liveBlocks());

    failAllocation(2);
    EXPECT_EQ(-1, radDictAddValue("Foo Bar 1"));
    EXPECT_LOG(log, "critical radDictAddValue: out of memory");
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(nullptr, radDictGetVal(1, "Foo"));

    failAllocation(3);
    EXPECT_EQ(0, radDictAddValue("Foo Bar 1"));
    EXPECT_FALSE(allocationFailed());
    EXPECT_EQ(1U, liveBlocks());
}

}  // namespace
}  // namespace lanyard::test::definitions_test
