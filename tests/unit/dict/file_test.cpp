// Dictionary files.
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/support/test.h"
#include "tests/unit/dict/dict_fixture.h"

namespace lanyard::test::file_test {
namespace {

using testing::ElementsAre;

constexpr const char *kPath = "/var/radius.dict";
constexpr const char *kUnloaded = "Unloaded RADIUS Dictionary\n";

auto openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class DictionaryFile : public DictTest {
  protected:
    void SetUp() override {
        DictTest::SetUp();
        openFilesBefore_ = openFiles();
    }

    void TearDown() override {
        EXPECT_EQ(openFilesBefore_, openFiles()) << "a file was left open";
        DictTest::TearDown();
    }

    int load(const std::string &text) {
        root_.write(kPath, text);
        log.clear();
        return radDictLoad(kPath);
    }

    void expectLoads(const std::string &text) {
        EXPECT_EQ(0, load(text));
        EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary",
                   "trace radDictLoad> Loaded Dictionary /var/radius.dict");
    }

    void expectFails(const std::string &text, const std::string &function,
                     const std::string &reason, const std::string &place) {
        EXPECT_EQ(-1, load(text));
        EXPECT_THAT(log.lines(), ElementsAre(Logged(7, 128, "radDictUnload", kUnloaded),
                                             Logged(7, 8, function, reason),
                                             Logged(7, 8, "radDictLoad", place)));
    }

    static std::string nameOf(int32_t number) {
        const RadDictAttr *attribute = radDictGetAttr(number);
        return attribute != nullptr ? attribute->name : "";
    }

  private:
    TemporaryRoot root_;
    std::ptrdiff_t openFilesBefore_ = 0;
};

TEST_F(DictionaryFile, HoldsAttributesAndValues) {
    expectLoads(
        "# a comment\n"
        "\n"
        "ATTRIBUTE\tFoo\t\t300\tinteger\n"
        "VALUE  Foo  Bar  7\n"
        "ATTRIBUTE Baz 5 date trailing words\n");
    EXPECT_EQ("Foo", nameOf(300));
    EXPECT_EQ("Baz", nameOf(5));
    EXPECT_EQ(RAD_TYPE_DATE, radDictGetAttr(5)->type);
    ASSERT_NE(nullptr, radDictGetVal(7, "Foo"));
    EXPECT_STREQ("Bar", radDictGetVal(7, "Foo")->valueName);
}

TEST_F(DictionaryFile, ReplacesTheDictionaryThatWasThere) {
    ASSERT_EQ(0, radDictLoad(nullptr));
    expectLoads("ATTRIBUTE Foo 300 string\n");
    EXPECT_EQ(1U, liveBlocks());
    EXPECT_EQ(nullptr, radDictGetAttr(1));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Type"));
    EXPECT_EQ("Foo", nameOf(300));

    ASSERT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ("User-Name", nameOf(1));
    EXPECT_EQ(nullptr, radDictGetAttr(300));
}

TEST_F(DictionaryFile, MayBeEmpty) {
    ASSERT_EQ(0, radDictLoad(nullptr));
    expectLoads("");
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(DictionaryFile, ThatDoesNotExistStillUnloads) {
    ASSERT_EQ(0, radDictLoad(nullptr));
    log.clear();
    EXPECT_EQ(-1, radDictLoad("/var/missing.dict"));
    EXPECT_LOG(
        log, "trace radDictUnload> Unloaded RADIUS Dictionary",
        "error radDictLoad: couldn't open dictionary /var/missing.dict: No such file or directory");
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(DictionaryFile, NeedsNoSeparatorAfterItsKeywords) {
    expectLoads(
        "ATTRIBUTEFoo 5 string\n"
        "VALUEFoo Bar 7\n"
        "VALUES Bar 8\n");
    EXPECT_EQ("Foo", nameOf(5));
    EXPECT_NE(nullptr, radDictGetVal(7, "Foo"));
    EXPECT_NE(nullptr, radDictGetVal(8, "S"));
}

TEST_F(DictionaryFile, MayHoldOtherLines) {
    expectLoads(
        "VENDOR Nobody 1\n"
        "attribute Foo 5 string\n"
        " ATTRIBUTE Foo 5 string\n"
        "\tVALUE Foo Bar 7\n"
        " # no comment\n"
        "ATTRIBUT\n"
        "x\n");
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(DictionaryFile, SkipsALineThatStartsWithANul) {
    expectLoads(std::string("\0ATTRIBUTE Foo x1 string\n", 25) + "ATTRIBUTE Bar 6 string\n");
    EXPECT_EQ("Bar", nameOf(6));
    EXPECT_EQ(1U, liveBlocks());
}

TEST_F(DictionaryFile, HidesEarlierNumbersBehindLaterOnes) {
    expectLoads(
        "ATTRIBUTE First 9 string\n"
        "ATTRIBUTE Second 9 string\n");
    EXPECT_EQ("Second", nameOf(9));
    EXPECT_EQ(2U, liveBlocks());
}

TEST_F(DictionaryFile, EndsAtABadAttribute) {
    expectFails(
        "ATTRIBUTE Foo 5 string\n"
        "VALUE Foo Bar 7\n"
        "ATTRIBUTE Baz x1 string\n"
        "ATTRIBUTE Qux 6 string\n",
        "radDictAddAttr", "radDictAddAttr: Invalid Attribute Number in:  Baz\n",
        "radDictLoad: Invalid Attribute on line 3 of dictionary /var/radius.dict\n");
    // What stood before it stays, what stands after it is not read.
    EXPECT_EQ("Foo", nameOf(5));
    EXPECT_NE(nullptr, radDictGetVal(7, "Foo"));
    EXPECT_EQ(2U, liveBlocks());
}

TEST_F(DictionaryFile, EndsAtABadValue) {
    expectFails(
        "ATTRIBUTE Foo 5 string\n"
        "VALUE Foo Bar\n"
        "VALUE Foo Baz 1\n",
        "radDictAddValue", "radDictAddValue: Invalid Value in:  Foo\n",
        "radDictLoad: Invalid Value on line 2 of dictionary /var/radius.dict\n");
    EXPECT_EQ("Foo", nameOf(5));
    EXPECT_EQ(1U, liveBlocks());
}

TEST_F(DictionaryFile, MustDefineSomethingAfterAKeyword) {
    expectFails("ATTRIBUTE\n", "radDictAddAttr", "radDictAddAttr: Invalid Attribute in: \n",
                "radDictLoad: Invalid Attribute on line 1 of dictionary /var/radius.dict\n");
    expectFails("VALUE\n", "radDictAddValue", "radDictAddValue: Invalid Value in: \n",
                "radDictLoad: Invalid Value on line 1 of dictionary /var/radius.dict\n");
}

TEST_F(DictionaryFile, CountsEveryLine) {
    expectFails(
        "# comment\n"
        "\n"
        "ignored\n"
        "# comment\n"
        "VALUE Foo Bar x\n",
        "radDictAddValue", "radDictAddValue: Invalid Value Number in:  Foo\n",
        "radDictLoad: Invalid Value on line 5 of dictionary /var/radius.dict\n");
}

TEST_F(DictionaryFile, LosesTheLastCharacterOfALastLineWithoutNewline) {
    expectLoads("VALUE Foo Bar 123");
    EXPECT_EQ(nullptr, radDictGetVal(123, "Foo"));
    EXPECT_NE(nullptr, radDictGetVal(12, "Foo"));

    expectLoads("ATTRIBUTE Foo 5 stringX");
    EXPECT_EQ("Foo", nameOf(5));

    expectLoads("ATTRIBUTE");
    EXPECT_EQ(0U, liveBlocks());

    expectFails("ATTRIBUTE Foo 5 string", "radDictAddAttr",
                "radDictAddAttr: Invalid Attribute Type in:  Foo\n",
                "radDictLoad: Invalid Attribute on line 1 of dictionary /var/radius.dict\n");
}

// 255 characters a read; the rest of the line is the next one.
TEST_F(DictionaryFile, ContinuesALongLineAsTheNext) {
    expectFails('#' + std::string(254, '-') +
                    "ATTRIBUTE Foo 5 string\n"
                    "ATTRIBUTE Bar x string\n",
                "radDictAddAttr", "radDictAddAttr: Invalid Attribute Number in:  Bar\n",
                "radDictLoad: Invalid Attribute on line 3 of dictionary /var/radius.dict\n");
    EXPECT_EQ("Foo", nameOf(5));
}

TEST_F(DictionaryFile, LosesTheLastCharacterOfEachPieceOfALongLine) {
    // The first piece ends after "string!".
    const std::string start = "ATTRIBUTE Foo 5 ";
    expectLoads(start + std::string(255 - start.size() - 7, ' ') + "string!" + "\n");
    EXPECT_EQ("Foo", nameOf(5));
    EXPECT_EQ(RAD_TYPE_STRING, radDictGetAttr(5)->type);

    // A line that fills the buffer with its newline is whole.
    expectLoads(start + std::string(254 - start.size() - 6, ' ') + "string" + "\n");
    EXPECT_EQ("Foo", nameOf(5));
}

TEST_F(DictionaryFile, EndsWhereMemoryDoes) {
    const std::string text =
        "ATTRIBUTE Foo 5 string\n"
        "VALUE Foo Bar 7\n";
    unsigned run = 0;
    const unsigned failures = forEachFailingAllocation([&] {
        ++run;
        const int status = load(text);
        EXPECT_EQ(allocationFailed() ? -1 : 0, status);
        EXPECT_EQ(run - 1, liveBlocks());
        EXPECT_EQ(0, radDictUnload());
        switch (run) {
            case 1:
                EXPECT_PROBLEMS(log, "critical radDictAddAttr: out of memory",
                                "error radDictLoad: Invalid Attribute on line 1 of dictionary "
                                "/var/radius.dict");
                break;
            case 2:
                EXPECT_PROBLEMS(
                    log, "critical radDictAddValue: out of memory",
                    "error radDictLoad: Invalid Value on line 2 of dictionary /var/radius.dict");
                break;
            default:
                EXPECT_PROBLEMS(log);
        }
    });
    EXPECT_EQ(2U, failures);
}

}  // namespace
}  // namespace lanyard::test::file_test
