// What 'check' and 'dict check' say of files, and that the library says the same.
#include "tools/lanyardctl/check.h"

#include <fstream>
#include <iterator>
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"

namespace lanyard::test::check_test {
namespace {

using lanyardctl::checkConfiguration;
using lanyardctl::checkDictionary;
using lanyardctl::FileFindings;
using lanyardctl::LineFinding;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Check : public testing::Test {
  protected:
    FileFindings check(const std::string &text) {
        root_.write("/checked", text);
        std::filesystem::permissions(
            root_.path("/checked"),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        return checkConfiguration("/checked");
    }

    // The one finding of a file with one line and a newline.
    LineFinding line(const std::string &text) {
        const FileFindings findings = check(text + "\n");
        EXPECT_FALSE(findings.lines.empty());
        return findings.lines.empty() ? LineFinding() : findings.lines[0];
    }

    // What is said of a file with that line alone.
    void expectDoubt(const std::string &text, const std::string &problem) {
        expectProblem(text, problem, false);
    }
    void expectWrong(const std::string &text, const std::string &problem) {
        expectProblem(text, problem, true);
    }

    FileFindings checkDict(const std::string &text) {
        root_.write("/checked", text);
        return checkDictionary("/checked");
    }

  private:
    void expectProblem(const std::string &text, const std::string &problem, bool isWrong) {
        const LineFinding finding = line(text);
        EXPECT_EQ(isWrong, finding.isWrong) << text;
        EXPECT_THAT(finding.problems, Contains(HasSubstr(problem))) << text;
    }

  protected:
    TemporaryRoot root_;
};

TEST_F(Check, RightFile_HasMeaningsAndNoProblem) {
    const FileFindings findings =
        check("# servers\nauthserver 192.0.2.1:1645:3:2:secret, b.example:s\n\ntimeout 5\n");
    EXPECT_TRUE(findings.isAccepted);
    ASSERT_EQ(2U, findings.lines.size());
    EXPECT_EQ(2, findings.lines[0].number);
    EXPECT_EQ("192.0.2.1, port 1645, 3 s, sent again 2 times, a secret of 6 characters",
              findings.lines[0].meanings.at(0));
    EXPECT_THAT(findings.lines[0].meanings.at(1), HasSubstr("b.example, port "));
    EXPECT_THAT(findings.lines[0].problems, IsEmpty());
    EXPECT_THAT(findings.lines[1].meanings, ElementsAre("time-out 5 s"));
}

TEST_F(Check, WhatIsReadOtherwiseThanWritten_IsDoubtful) {
    expectDoubt("authserver a:99999:s",
                "a: the port is read as 34463, and what is written is another number");
    expectDoubt("authserver a:18x2:s",
                "a: the port is read as 18, and what is written is no number");
    expectDoubt("authserver a:1812:3s:s", "a: the time-out is read as 3");
    expectDoubt("authserver ::1:s", "read as host '1'");
    expectDoubt("authserver [2001:1812:s", "there are no IPv6 addresses");
    expectDoubt("authserver a:1812:3:2:se:cret", "it can hold no colon");
    expectDoubt("authserver a:1812:-1:5:s", "-1 does not stand for the default");
    expectDoubt("authserver a:1812:0:5:s", "no answer is waited for");
    expectDoubt("timeout 5x", "the time-out is read as 5, and what is written is no number");
}

TEST_F(Check, RefusedLine_SaysWhy) {
    expectWrong("authserver a:s # the first", "a comment cannot follow at a line's end");
    expectWrong("authserver a:s,b:s,c:s,d:s,e:s,f:s,g:s,h:s,i:s", "names 9 servers");
    expectWrong("authserver a", "server 1 of the line has no secret");
    expectWrong("authserver a:my:secret", "in the place of the port is no number");
    expectWrong("authserver a:1812:my:secret", "in the place of the time-out is no number");
    expectWrong("authserver", "names no server");
    expectWrong("Timeout 3", "unknown keyword 'Timeout'");
    expectWrong(" timeout 3", "begins with a blank");
    expectWrong("timeout soon", "time-out is no number");
    expectWrong("dictionary /none", "'/none' cannot be opened");
}

TEST_F(Check, LastLineWithoutNewline_LosesItsLastCharacter) {
    const FileFindings findings = check("authserver a:secret");
    EXPECT_TRUE(findings.isAccepted);
    EXPECT_THAT(findings.lines.at(0).problems, Contains(HasSubstr("drops its last character")));
    EXPECT_THAT(findings.lines.at(0).meanings.at(0), HasSubstr("a secret of 5 characters"));
}

TEST_F(Check, LineOfMoreThan510Characters_IsTwo) {
    const FileFindings findings = check("authserver a:" + std::string(520, 's') + "\nretries 1\n");
    EXPECT_FALSE(findings.isAccepted);
    EXPECT_THAT(findings.lines.at(0).problems, Contains(HasSubstr("longer than 510 characters")));
    EXPECT_TRUE(findings.lines.at(1).isWrong);
}

TEST_F(Check, FileThatOthersMayRead_IsDoubtful) {
    root_.write("/open", "authserver a:s\n");
    std::filesystem::permissions(root_.path("/open"), std::filesystem::perms(0644));
    const FileFindings findings = checkConfiguration("/open");
    EXPECT_THAT(findings.lines.back().problems, ElementsAre(HasSubstr("chmod 600")));
}

TEST_F(Check, NoSecretIsShown) {
    const std::string tooLong = "authserver a:" + std::string(495, 's') + ":hush-hush hush\n";
    for (const std::string &text :
         {std::string("authserver a:hush, b:1812:hush:hush, c:1812:3:2:hush:hush\n"),
          std::string("authserver a:9hush:hush, b:1812:7hush:hush, c:hush d\n"),
          std::string("authserver a:hush hush\n"), std::string("authserver a:s,hush:\n"),
          std::string("authserver hush\n"), tooLong}) {
        const FileFindings findings = check(text);
        for (const LineFinding &finding : findings.lines) {
            EXPECT_THAT(finding.meanings, Not(Contains(HasSubstr("hush")))) << text;
            EXPECT_THAT(finding.problems, Not(Contains(HasSubstr("hush")))) << text;
        }
    }
}

// The first line that the check calls wrong is the one that the library names in its log.
TEST_F(Check, LibraryAgreesAboutTheFirstWrongLine) {
    LogRecorder log;
    for (const char *text :
         {"authserver a:s\nTimeout 3\n", "\n#\nauthserver a:s\n b\n",
          "authserver a:s\nauthserver b:s\n", "authserver a:s\r\n\r\ntimeout 3\n",
          "retries x\nauthserver a:s\n", "authserver a:s\ndictionary /none\nbad\n",
          "authserver a:s:\ntimeout 3", "authserver a:1:2:3", "timeout\n", "acctserver a:s b\n",
          "authserver \nretries 2\n", "authserver a:s\nretries 3"}) {
        const FileFindings findings = check(text);
        log.clear();
        const bool isAccepted = radConfigure("/checked") == 0;
        EXPECT_EQ(isAccepted, findings.isAccepted) << text;
        std::string named;
        for (const std::string &message : log.texts(8)) {
            if (message.find("/checked: line ") != std::string::npos) {
                named = message.substr(message.find("line "));
                named = named.substr(0, named.find(':'));
            }
        }
        std::string wrong;
        for (const LineFinding &finding : findings.lines) {
            if (finding.isWrong && finding.number != 0 && wrong.empty()) {
                wrong = "line " + std::to_string(finding.number);
            }
        }
        EXPECT_EQ(named, wrong) << text;
    }
    radDeconfigure();
}

TEST_F(Check, DictionaryFile_SaysWhatIsWrong) {
    const FileFindings findings = checkDict(
        "ATTRIBUTE A 1 string\n"
        "ATTRIBUTE B 1 integer\n"
        "ATTRIBUTE C 300 integer\n"
        "VALUE D x 1\n"
        "VENDOR E 9\n"
        "ATTRIBUTE F two string\n");
    EXPECT_FALSE(findings.isAccepted);
    ASSERT_EQ(5U, findings.lines.size());
    EXPECT_THAT(findings.lines[0].problems, ElementsAre("B hides A, which has the same number"));
    EXPECT_THAT(findings.lines[1].problems, ElementsAre("no packet can carry the number 300"));
    EXPECT_THAT(findings.lines[2].problems,
                ElementsAre("no attribute or vendor above is called 'D'"));
    EXPECT_THAT(findings.lines[3].problems, ElementsAre(HasSubstr("ignored")));
    EXPECT_THAT(findings.lines[4].problems, ElementsAre("'two' is no number"));
    EXPECT_TRUE(findings.lines[4].isWrong);
    EXPECT_EQ(6, findings.lines[4].number);
}

TEST_F(Check, DictionaryNumbersThatAreReadOtherwise_AreDoubtful) {
    const FileFindings findings = checkDict(
        "ATTRIBUTE A 99999999999x string\n"
        "ATTRIBUTE B 4294967297 string\n"
        "ATTRIBUTE C 5x string\n"
        "ATTRIBUTE D 007 string\n"
        "VALUE D a 1x\n"
        "VALUE D b 99999999999\n"
        "VALUE D c 2147483647\n"
        "VALUE D d 00000000000000000000000000000000001\n");
    ASSERT_EQ(6U, findings.lines.size());
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_THAT(findings.lines[i].problems, ElementsAre(HasSubstr("is not read as it is")));
        EXPECT_FALSE(findings.lines[i].isWrong);
    }
    EXPECT_THAT(findings.lines[5].problems, ElementsAre("the number has more than 32 digits"));
    EXPECT_FALSE(findings.isAccepted);
}

TEST_F(Check, AttributesOfVendors_AreValuesOfTheirNames) {
    EXPECT_THAT(checkDict("ATTRIBUTE Vendor-Specific 26 string\n"
                          "VALUE Vendor-Specific Acme 99999\n"
                          "VALUE Acme Acme-Door 1\n")
                    .lines,
                IsEmpty());
    std::ifstream file(LANYARD_DICTIONARY);
    const FileFindings shipped = checkDict({std::istreambuf_iterator<char>(file), {}});
    EXPECT_TRUE(shipped.isAccepted);
    EXPECT_THAT(shipped.lines, IsEmpty());
}

TEST_F(Check, Folder_CannotBeRead) {
    EXPECT_THROW(checkConfiguration("/"), lanyardctl::Failure);
    EXPECT_THROW(checkDictionary("/"), lanyardctl::Failure);
}

}  // namespace
}  // namespace lanyard::test::check_test
