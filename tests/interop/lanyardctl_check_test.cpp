// lanyardctl check and dict: their output.
#include <filesystem>

#include "tests/interop/lanyardctl.h"

namespace lanyard::test::lanyardctl_check_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class CheckCommand : public Ctl {
  protected:
    // Writes a file that its owner alone may read, and returns its path on the device.
    std::string write(const std::string &text) const {
        const std::filesystem::path path = file("checked.conf", text);
        std::filesystem::permissions(path, std::filesystem::perms(0600));
        return "/checked.conf";
    }
};

TEST_F(CheckCommand, RightFile_EndsWith0) {
    const ProgramResult result = run({"check", write("authserver 192.0.2.1:1812:3:1:sesame\n")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "LINE  GRADE  MEANING\n"
        "1     ok     192.0.2.1, port 1812, 3 s, sent again 1 time, a secret of 6 characters\n"
        "/checked.conf: right\n",
        result.out);
}

TEST_F(CheckCommand, WrongFile_EndsWith4AndSaysWhereTheLibraryStops) {
    const ProgramResult result =
        run({"check", write("authserver 192.0.2.1:1812:3:1:sesame # first\ntimeout 5\n")});
    EXPECT_EQ(4, result.status);
    EXPECT_THAT(result.out, HasSubstr("a comment cannot follow at a line's end"));
    EXPECT_THAT(result.out, HasSubstr("2     ok     not read: the library stops at line 1\n"));
    EXPECT_THAT(result.out, HasSubstr("/checked.conf: the library refuses it\n"));

    const json answer = document({"check", "/checked.conf"}, 4);
    EXPECT_EQ(false, answer.at("ok"));
    EXPECT_EQ(false, answer.at("accepted"));
    EXPECT_EQ(1, answer.at("findings")[0].at("line"));
    EXPECT_EQ("wrong", answer.at("findings")[0].at("grade"));
}

TEST_F(CheckCommand, FileThatIsNotThere_EndsWith1) {
    const ProgramResult result = run({"check", "/none.conf"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("lanyardctl: cannot read /none.conf: No such file or directory\n", result.err);
    EXPECT_EQ(2, run({"check"}).status);
}

TEST_F(CheckCommand, DictShow_NamesTheValues) {
    const ProgramResult result = run({"dict", "show", "Termination-Action"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "Termination-Action, attribute 29, integer\n"
        "VALUE  NAME\n"
        "0      Default\n"
        "1      RADIUS-Request\n",
        result.out);
    const json answer = document({"dict", "show", "29"}, 0);
    EXPECT_EQ("Termination-Action", answer.at("attribute").at("name"));
    EXPECT_EQ(2U, answer.at("attribute").at("values").size());
    EXPECT_EQ(3, run({"dict", "show", "Nothing"}).status);
}

TEST_F(CheckCommand, DictShow_NamesTheAttributesOfAVendor) {
    file("vendors.dict",
         "ATTRIBUTE Vendor-Specific 26 string\nVALUE Vendor-Specific Acme 99999\n"
         "VALUE Acme Acme-Door 7\n");
    const ProgramResult result = run({"dict", "show", "Acme", "--dictionary", "/vendors.dict"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("Acme, vendor 99999\nVALUE  NAME\n7      Acme-Door\n", result.out);
    const json answer = document({"dict", "show", "Acme", "--dictionary", "/vendors.dict"}, 0);
    EXPECT_EQ(99999, answer.at("vendor").at("number"));
    EXPECT_EQ("Acme-Door", answer.at("vendor").at("attributes")[0].at("name"));
    EXPECT_EQ(3, run({"dict", "show", "Acme"}).status);
}

TEST_F(CheckCommand, DictListAndCheck_ReadTheFileThatIsNamed) {
    EXPECT_EQ(43U, document({"dict", "list"}, 0).at("attributes").size());
    file("some.dict", "ATTRIBUTE One 1 string\nATTRIBUTE Two 2 integer\n");
    const ProgramResult result = run({"dict", "list", "--dictionary", "/some.dict"});
    EXPECT_EQ("NUMBER  NAME  TYPE\n1       One   string\n2       Two   integer\n", result.out);
    EXPECT_EQ(0, run({"dict", "check", "/some.dict"}).status);
    file("some.dict", "ATTRIBUTE One\n");
    EXPECT_THAT(run({"dict", "check", "/some.dict"}).out,
                HasSubstr("1     wrong  an attribute needs name, number and type\n"));
    EXPECT_EQ(1, run({"dict", "list", "--dictionary", "/some.dict"}).status);
    EXPECT_EQ(1, run({"dict", "check", "/none"}).status);
}

}  // namespace
}  // namespace lanyard::test::lanyardctl_check_test
