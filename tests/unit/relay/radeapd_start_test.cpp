// What radeapd says when it cannot start, and that it does not become a daemon then.
#include <sstream>

#include "tests/unit/relay/radeapd_fixture.h"

namespace lanyard::test::radeapd_start_test {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class RadeapdStart : public testing::Test {
  protected:
    void SetUp() override {
        root.write(kDictionary, contentOf(LANYARD_DICTIONARY));
        database.nameDictionary(kDictionary);
    }

    ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), LANYARD_RADEAPD);
        return runProgram(arguments, {"PAL_ROOT=" + root.folder().string()});
    }

    // Ends with this as the last line, and with each line of the log before it only once.
    void expectRefused(const std::vector<std::string> &arguments, const std::string &reason) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(1, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_THAT(result.err, EndsWith("radeapd: " + reason + "\n"));
        std::vector<std::string> lines;
        std::istringstream text(result.err);
        for (std::string line; std::getline(text, line);) {
            EXPECT_THAT(lines, Not(Contains(line)));
            lines.push_back(line);
        }
        EXPECT_FALSE(root.exists("/run/xbus/8")) << "it was on the bus";
    }

    TemporaryRoot root;
    const DatabaseFile database{root.path("/device.db")};
    const std::string file = database.path();
};

TEST_F(RadeapdStart, NeedsADatabase) {
    const std::string reason =
        "name the device's database with -d; without it there are no servers to ask";
    expectRefused({}, reason);
    expectRefused({"-v", "word"}, reason);
}

TEST_F(RadeapdStart, MissingDatabaseIsToldAndNotMade) {
    const std::string missing = root.path("/missing.db").string();
    const std::string reason =
        "cannot read the database " + missing + ": No such file or directory";
    expectRefused({"-d", missing}, reason);
    expectRefused({"-v", "-d", file, "-f", "-d", missing}, reason);
    EXPECT_FALSE(root.exists("/missing.db"));
}

TEST_F(RadeapdStart, FileWithoutTheTableIsTold) {
    const auto reason = [](const std::string &path) {
        return path +
               " is no database with a table 'environment', or it is locked; 'lanyardctl db init' "
               "makes what is missing";
    };
    root.write("/garbage", "This is the text of no database at all.\n");
    const std::string garbage = root.path("/garbage").string();
    expectRefused({"-d", garbage}, reason(garbage));
    expectRefused({"-d", root.folder().string()}, reason(root.folder().string()));
    database.run("DROP TABLE environment");
    expectRefused({"-d", file}, reason(file));
}

TEST_F(RadeapdStart, DatabaseWithoutADictionaryIsTold) {
    const std::string reason =
        "the database " + file +
        " names no dictionary; 'lanyardctl db init --dictionary FILE' names one";
    database.run("UPDATE environment SET value=NULL");
    expectRefused({"-d", file}, reason);
    database.run("DELETE FROM environment");
    expectRefused({"-d", file}, reason);
}

TEST_F(RadeapdStart, DictionaryThatDoesNotLoadIsTold) {
    const std::string reason = std::string("the dictionary '") + kDictionary +
                               "' cannot be loaded; 'lanyardctl db init --dictionary FILE' names "
                               "another one";
    root.write(kDictionary, "ATTRIBUTE Nothing\n");
    expectRefused({"-d", file}, reason);
    root.remove(kDictionary);
    expectRefused({"-d", file}, reason);
}

TEST_F(RadeapdStart, WrongNumbers_AreTold) {
    const auto expectNumber = [this](const std::string &option, const std::string &most) {
        const auto refused = [&](const std::string &text) {
            return option + " takes a number from 1 to " + most + ", not '" + text + "'";
        };
        const std::string tooLarge = std::to_string(std::stol(most) + 1);
        for (const std::string &text :
             {std::string("0"), std::string("-1"), std::string(""), std::string("many"),
              std::string("8x"), tooLarge, std::string("99999999999999999999")}) {
            expectRefused({"-d", file, option, text}, refused(text));
        }
        expectRefused({"-d", file, option}, refused(""));
        expectRefused({option, "-d", file}, refused("-d"));
    };
    expectNumber("--in-flight", "256");
    expectNumber("--dead-time", "86400");
}

TEST_F(RadeapdStart, WrongCommandLinesAreTheRelaysToTell) {
    ProgramResult result = run({"-x"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(std::string("Usage: ") + LANYARD_RADEAPD + " [-v] [ -f confFile]\n", result.out);
    EXPECT_THAT(result.err, HasSubstr("invalid option -- 'x'"));
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"-f", "-d", file}, {"-v", "-f"}, {"-d"}}) {
        result = run(words);
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.err, HasSubstr("ERROR: option value not specified"));
        EXPECT_THAT(result.err, Not(HasSubstr("radeapd: name")));
    }
}

}  // namespace
}  // namespace lanyard::test::radeapd_start_test
