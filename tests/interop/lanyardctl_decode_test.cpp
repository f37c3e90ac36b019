// lanyardctl decode: packets out of logs, dumps and captures.
#include <arpa/inet.h>
#include <cstdint>
#include <string>

#include "tests/interop/lanyardctl.h"
#include "tests/support/bytes.h"
#include "tests/support/radius_wire.h"

namespace lanyard::test::lanyardctl_decode_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char *kSecret = "the-secret";

// A capture of UDP, over Ethernet unless another link is named.
class Capture {
  public:
    explicit Capture(uint32_t linkType = 1,
                     const char *linkHeader = "000000000000 000000000000 0800")
        : linkHeader_(fromHex(linkHeader)) {
        add32({0xa1b2c3d4, 0x00040002, 0, 0, 65535, linkType});  // version 2.4
    }

    Capture &add(const std::string &source, uint16_t from, const std::string &destination,
                 uint16_t to, const Bytes &payload) {
        Bytes frame = linkHeader_;
        const auto add16 = [&frame](size_t number) {
            frame.push_back(static_cast<uint8_t>(number >> 8U));
            frame.push_back(static_cast<uint8_t>(number));
        };
        const bool isIpv6 = source.find(':') != std::string::npos;
        if (isIpv6) {
            for (const size_t field :
                 {size_t{0x6000}, size_t{0}, 8 + payload.size(), size_t{0x1140}}) {
                add16(field);
            }
        } else {
            for (const size_t field : {size_t{0x4500}, 28 + payload.size(), size_t{0}, size_t{0},
                                       size_t{0x4011}, size_t{0}}) {
                add16(field);
            }
        }
        for (const std::string &text : {source, destination}) {
            Bytes address(isIpv6 ? sizeof(in6_addr) : sizeof(in_addr));
            EXPECT_EQ(1, inet_pton(isIpv6 ? AF_INET6 : AF_INET, text.c_str(), address.data()));
            frame.insert(frame.end(), address.begin(), address.end());
        }
        for (const size_t field : {size_t{from}, size_t{to}, 8 + payload.size(), size_t{0}}) {
            add16(field);
        }
        frame.insert(frame.end(), payload.begin(), payload.end());
        const auto size = static_cast<uint32_t>(frame.size());
        add32({0, 0, size, size});
        bytes_.append(frame.begin(), frame.end());
        return *this;
    }

    [[nodiscard]] const std::string &bytes() const { return bytes_; }

  private:
    void add32(std::initializer_list<uint32_t> numbers) {
        for (const uint32_t number : numbers) {
            bytes_.append(reinterpret_cast<const char *>(&number), sizeof(number));
        }
    }

    Bytes linkHeader_;
    std::string bytes_;
};

class Decode : public Ctl {
  protected:
    Bytes request() const {
        return makeRequest(7, authenticator_, kSecret,
                           Attributes().addText(1, "alice").addMessageAuthenticator());
    }

    std::string captureOfALogin() const {
        const Bytes reply =
            makeReply(2, request(), kSecret,
                      Attributes().addInteger(27, 60).addVendor(14122, 7, fromHex("000f4240")));
        return file("login.pcap", Capture()
                                      .add("127.0.0.1", 5000, "127.0.0.2", 1812, request())
                                      .add("127.0.0.1", 53, "127.0.0.2", 5000, request())
                                      .add("127.0.0.2", 1812, "127.0.0.1", 5000, reply)
                                      .bytes());
    }

    const Bytes authenticator_ = fromHex("000102030405060708090a0b0c0d0e0f");
};

TEST_F(Decode, CaptureWithTheSecret_EveryAuthenticatorIsVerified) {
    const ProgramResult result = run({"decode", captureOfALogin(), "--secret-file",
                                      file("secret", std::string(kSecret) + "\n")});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(
        result.out,
        StartsWith(
            "frame 1, 127.0.0.1:5000 > 127.0.0.2:1812: Access-Request, identifier 7, 45 bytes\n"
            "  Message-Authenticator: right\n"
            "  User-Name              \"alice\"\n"));
    EXPECT_THAT(
        result.out,
        HasSubstr(
            "\n\nframe 3, 127.0.0.2:1812 > 127.0.0.1:5000: Access-Accept, identifier 7, 38 bytes\n"
            "  authenticator: right\n"
            "  Message-Authenticator: missing\n"
            "  Session-Timeout         60 s\n"
            "  WISPr-Bandwidth-Max-Up  1000000 bit/s\n"));
}

TEST_F(Decode, EveryLinkAndBothVersionsOfIp_AreRead) {
    struct Link {
        uint32_t type;
        const char *header;
    };
    for (const Link &link :
         {Link{1, "000000000000 000000000000 0800"},
          Link{1, "000000000000 000000000000 88a8 0001 8100 0002 0800"},  // two VLANs
          Link{0, "02000000"},                                            // BSD loopback
          Link{101, ""},                                                  // IP alone
          Link{113, "0000 0001 0006 0000000000000000 0800"},              // any interface
          Link{276, "0800 0000 00000001 0001 00 06 0000000000000000"}}) {
        const std::string capture =
            file("link.pcap", Capture(link.type, link.header)
                                  .add("127.0.0.1", 5000, "127.0.0.2", 1812, request())
                                  .add("2001:db8::1", 5000, "2001:db8::2", 1812, request())
                                  .bytes());
        const ProgramResult result = run({"decode", capture});
        EXPECT_EQ(0, result.status) << link.type << result.err;
        EXPECT_THAT(result.out,
                    StartsWith("frame 1, 127.0.0.1:5000 > 127.0.0.2:1812: Access-Request, "));
        EXPECT_THAT(
            result.out,
            HasSubstr("\nframe 2, [2001:db8::1]:5000 > [2001:db8::2]:1812: Access-Request, "));
    }
    const ProgramResult unknown =
        run({"decode", file("link.pcap", Capture(147, "").add("::1", 1, "::2", 1812, {}).bytes())});
    EXPECT_EQ(1, unknown.status);
    EXPECT_THAT(unknown.err,
                HasSubstr(" has frames of link type 147, which this program does not know\n"));
}

TEST_F(Decode, CaptureOnStandardInput_IsRead) {
    for (const char *command : {R"("$0" decode <"$1")", R"(cat "$1" | "$0" decode -)",
                                R"(cat "$1" | "$0" decode /dev/stdin)"}) {
        const ProgramResult result =
            runProgram({"/bin/sh", "-c", command, LANYARDCTL, captureOfALogin()}, {});
        EXPECT_EQ(0, result.status) << command << result.err;
        EXPECT_THAT(result.out, HasSubstr("\n\nframe 3, 127.0.0.2:1812 > 127.0.0.1:5000: "));
    }
}

TEST_F(Decode, WrongSecret_EndsWith4) {
    const json answer =
        document({"decode", captureOfALogin(), "--secret-file", file("secret", "another\n")}, 4);
    EXPECT_EQ(false, answer.at("ok"));
    ASSERT_EQ(2U, answer.at("packets").size());
    EXPECT_EQ("wrong", answer.at("packets")[0].at("proofs").at("Message-Authenticator"));
    EXPECT_EQ("wrong", answer.at("packets")[1].at("proofs").at("authenticator"));
    EXPECT_EQ(60, answer.at("packets")[1].at("attributes")[0].at("value"));
}

TEST_F(Decode, LogOfTheLibrary_IsRead) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    file("password", "wonderland\n");
    const ProgramResult logged =
        runProgram({"/bin/sh", "-c", R"("$0" login alice --password-file "$1/password" 2>"$1/log")",
                    LANYARDCTL, root().path().string()},
                   {"PAL_ROOT=" + root().path().string(), "PAL_DEBUG_LEVELS=412"});
    EXPECT_EQ(0, logged.status);
    const json answer = document({"decode", (root().path() / "log").string(), "--secret-file",
                                  file("secret", server().secret() + "\n")},
                                 0);
    ASSERT_EQ(2U, answer.at("packets").size());
    EXPECT_EQ("Access-Request", answer.at("packets")[0].at("code_name"));
    EXPECT_EQ("right", answer.at("packets")[0].at("proofs").at("Message-Authenticator"));
    EXPECT_THAT(answer.at("packets")[0].at("attributes").dump(), HasSubstr(R"("hidden_bytes":16)"));
    EXPECT_EQ("right", answer.at("packets")[1].at("proofs").at("authenticator"));
}

TEST_F(Decode, HexDigitsAndDumps_AreTheSamePacket) {
    for (const char *text :
         {"01050020000102030405060708090a0b0c0d0e0f010661626364060600000002",
          "01 05 00 20  00 01 02 03 04 05 06 07 08 09 0a 0b\n0c 0d 0e 0f 01 06 61 62 63 64 06 06 "
          "00 "
          "00 00 02\n",
          "0000  01 05 00 20 00 01 02 03 04 05 06 07 08 09 0a 0b  ................\n"
          "0010  0c 0d 0e 0f 01 06 61 62 63 64 06 06 00 00 00 02  ......abcd......\n",
          "\t0x0000:  0105 0020 0001 0203 0405 0607 0809 0a0b  ................\n"
          "\t0x0010:  0c0d 0e0f 0106 6162 6364 0606 0000 0002  ......abcd......\n"}) {
        const json answer = document({"decode", file("text", text)}, 0);
        ASSERT_EQ(1U, answer.at("packets").size()) << text;
        EXPECT_EQ(32, answer.at("packets")[0].at("length")) << text;
        const json &attributes = answer.at("packets")[0].at("attributes");
        ASSERT_EQ(2U, attributes.size());
        EXPECT_EQ("abcd", attributes[0].at("value"));
        EXPECT_EQ("Framed-User", attributes[1].at("name_of_value"));
    }
}

TEST_F(Decode, WrongInput_SaysWhatIsWrong) {
    json answer = document({"decode", file("text", "0105ffff\n")}, 4);
    EXPECT_EQ("it has 4 bytes, and a header has 20", answer.at("packets")[0].at("problem"));
    answer =
        document({"decode", file("text", "01050018000102030405060708090a0b0c0d0e0f01ff6162\n")}, 4);
    EXPECT_EQ("attribute 1 at byte 20 does not fit into the packet",
              answer.at("packets")[0].at("problem"));
    EXPECT_EQ(1, run({"decode", file("text", "nothing here\n")}).status);
    EXPECT_EQ("lanyardctl: cannot read /none: No such file or directory\n",
              run({"decode", "/none"}).err);
    EXPECT_EQ("lanyardctl: cannot read /: Is a directory\n", run({"decode", "/"}).err);
    const ProgramResult nothing =
        runProgram({"/bin/sh", "-c", R"("$0" decode </dev/null)", LANYARDCTL}, {});
    EXPECT_EQ(1, nothing.status);
    EXPECT_EQ("lanyardctl: there is no packet in standard input\n", nothing.err);
    const ProgramResult cut = run({"decode", file("cut.pcap", Capture().bytes().substr(0, 20))});
    EXPECT_EQ(1, cut.status);
    EXPECT_THAT(cut.err, HasSubstr("cannot read "));
}

}  // namespace
}  // namespace lanyard::test::lanyardctl_decode_test
