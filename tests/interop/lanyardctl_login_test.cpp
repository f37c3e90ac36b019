// lanyardctl login: what a login brings, and the cause of one that fails.
#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tests/interop/lanyardctl.h"
#include "tests/support/scripted_server.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::lanyardctl_login_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr int kMessageAuthenticator = 80;

// A server with another secret that drops what is signed wrongly, as many do, and answers the rest.
Action answerTheUnsigned(const std::string &secret) {
    return respond([secret](const ReceivedRequest &request) -> std::optional<Bytes> {
        for (const Attribute &attribute : request.attributes()) {
            if (attribute.type == kMessageAuthenticator) {
                return std::nullopt;
            }
        }
        return makeReply(3, request, secret);
    });
}

// lanyardctl at a terminal of its own.
class AtTerminal {
  public:
    AtTerminal(const std::vector<std::string> &arguments, const std::string &root) {
        int terminal = -1;
        process_ = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (process_ == 0) {
            setenv("PAL_ROOT", root.c_str(), 1);
            std::vector<char *> words = {const_cast<char *>(LANYARDCTL)};
            for (const std::string &argument : arguments) {
                words.push_back(const_cast<char *>(argument.c_str()));
            }
            words.push_back(nullptr);
            execv(LANYARDCTL, words.data());
            _exit(127);
        }
        terminal_.emplace(terminal, "forkpty");
    }

    // What it shows until there is this text, or to its end.
    std::string shownUntil(const std::string &text) const {
        constexpr int kPatience = 20000;
        std::string shown;
        pollfd entry = {terminal_->get(), POLLIN, 0};
        char byte = 0;
        while ((text.empty() || shown.find(text) == std::string::npos) &&
               poll(&entry, 1, kPatience) == 1 && read(terminal_->get(), &byte, 1) == 1) {
            shown.push_back(byte);
        }
        return shown;
    }
    bool echoes() const {
        termios settings{};
        return tcgetattr(terminal_->get(), &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }
    void type(const std::string &text) const {
        EXPECT_EQ(static_cast<ssize_t>(text.size()),
                  write(terminal_->get(), text.data(), text.size()));
    }
    // How it has ended, as waitpid() tells it; it is killed if it has not.
    int ended() const {
        (void)shownUntil("");
        (void)kill(process_, SIGKILL);
        int status = -1;
        return waitpid(process_, &status, 0) == process_ ? status : -1;
    }

  private:
    std::optional<FileDescriptor> terminal_;
    pid_t process_ = -1;
};

class Login : public Ctl {
  protected:
    // The cause that a login at one server has.
    json failure(const std::string &entry) {
        writeConfiguration("authserver " + entry + "\n");
        const json answer = document(login("alice", "wonderland"), 5);
        EXPECT_EQ("no valid answer", answer.value("result", ""));
        const json failed = answer.value("failed_servers", json::array());
        EXPECT_EQ(1U, failed.size());
        return failed.empty() ? json::object() : failed[0];
    }
};

TEST_F(Login, EveryMethod_Accepted) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    for (const char *method : {"pap", "chap", "mschap", "mschapv2"}) {
        const json answer = document(login("alice", "wonderland", method), 0);
        EXPECT_EQ(true, answer.at("ok")) << method;
        EXPECT_EQ("accepted", answer.at("result"));
        EXPECT_EQ(at(server().authPort()), answer.at("server"));
        EXPECT_EQ("Access-Accept", answer.at("code_name"));
        EXPECT_EQ(false, answer.at("signed"));
        EXPECT_THAT(answer.at("attributes").dump(),
                    HasSubstr(R"({"name":"Session-Timeout","number":27,"unit":"s","value":7201})"));
        EXPECT_EQ(std::string(method).starts_with("ms"),
                  answer.dump().find("MS-MPPE-Encryption-Types") != std::string::npos);
        EXPECT_FALSE(answer.contains("failed_servers"));
    }
}

TEST_F(Login, PersonReadsServerTimeAndAttributes) {
    writeConfiguration("authserver " + entry(server().signedPort()) + "\n");
    const ProgramResult result = run(login("carol", "looking-glass"));
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out,
                MatchesRegex("carol: accepted \\(PAP\\), by 127.0.0.1:[0-9]+ after "
                             "[0-9.]+ ms\n"
                             "  Access-Accept, signed\n"
                             "  Session-Timeout        60 s\n"
                             "  Filter-Id              \"guests\"\n"
                             "  Attribute-25           0x0102fe, not in the dictionary: "
                             "the library skips it\n"
                             "  Message-Authenticator  0x[0-9a-f]+\n"));
    EXPECT_EQ("", result.err);
}

TEST_F(Login, WrongPassword_RejectedAndSaysWhatToLookAt) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const ProgramResult result = run(login("alice", "wrong"));
    EXPECT_EQ(4, result.status);
    EXPECT_THAT(result.out,
                AllOf(StartsWith("alice: rejected (PAP), by "),
                      HasSubstr("  Access-Reject, not signed, without attributes\n"),
                      HasSubstr("  Next: the secret is right and the server says no: wrong "
                                "password")));
    const json answer = document(login("alice", "wrong", "mschapv2"), 4);
    EXPECT_EQ(false, answer.at("ok"));
    EXPECT_EQ("rejected", answer.at("result"));
    EXPECT_THAT(answer.at("attributes").dump(), HasSubstr("E=691"));
}

TEST_F(Login, PasswordOnStandardInput_ItsFirstLineIsTaken) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const ProgramResult result = runProgram(
        {"/bin/sh", "-c", R"(printf 'wonderland\nmore\n' | "$0" login alice)", LANYARDCTL},
        {"PAL_ROOT=" + root().path().string()});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, StartsWith("alice: accepted"));
}

TEST_F(Login, PasswordAtATerminal_IsAskedForWithoutEcho) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const AtTerminal terminal({"login", "alice"}, root().path());
    EXPECT_EQ("Password of alice: ", terminal.shownUntil(": "));
    EXPECT_FALSE(terminal.echoes());
    terminal.type("wonderland\n");
    const std::string shown = terminal.shownUntil("");
    EXPECT_THAT(shown, AllOf(HasSubstr("accepted"), Not(HasSubstr("wonderland"))));
    EXPECT_EQ(0, terminal.ended()) << shown;
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(Login, InterruptedAtTheTerminal_EndsAndEchoIsBack) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const AtTerminal terminal({"login", "alice"}, root().path());
    EXPECT_EQ("Password of alice: ", terminal.shownUntil(": "));
    terminal.type("wonder\003");
    const int status = terminal.ended();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGINT, WTERMSIG(status));
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(Login, AnswerWithAnotherSecret_IsAWrongSecret) {
    ScriptedServer other("another-secret");
    other.otherwise(reject());
    const json cause = failure(entry(other.port(), "our-secret"));
    EXPECT_EQ("wrong secret", cause.value("reason", ""));
    EXPECT_THAT(cause.value("next", ""), HasSubstr("set the same secret here and in the server's"));
}

TEST_F(Login, AnswerToAnUnsignedRequestAlone_TellsAWrongSecretFromSilence) {
    ScriptedServer other("another-secret");
    other.otherwise(answerTheUnsigned("another-secret"));
    EXPECT_EQ("wrong secret", failure(entry(other.port(), "our-secret")).value("reason", ""));
    ScriptedServer same("our-secret");
    same.otherwise(answerTheUnsigned("our-secret"));
    EXPECT_EQ("answers only what is not signed",
              failure(entry(same.port(), "our-secret")).value("reason", ""));
}

TEST_F(Login, Silence_SaysWhatToLookAt) {
    const SilentPort silent;
    const json cause = failure(entry(silent.port()));
    EXPECT_EQ("", cause.value("reason", "none"));
    EXPECT_THAT(cause.value("what", ""), HasSubstr("no reply in 1 try of 1 s"));
    EXPECT_THAT(cause.value("next", ""), HasSubstr("is this device one of its clients"));
}

TEST_F(Login, ClosedPortUnknownNameAndNoRoute_AreToldApart) {
    const RefusedPort refused;
    EXPECT_EQ("port closed", failure(entry(refused.port())).value("reason", ""));
    EXPECT_EQ("name not found",
              failure("no-such-host.invalid:1812:1:0:secret").value("reason", ""));
    EXPECT_THAT(failure("127.255.255.255:1812:1:0:secret").value("reason", ""),
                StartsWith("unreachable: "));
}

TEST_F(Login, CauseIsThisMachinesOwn_ServerIsNotAsked) {
    ScriptedServer other("secret");
    other.otherwise(reject());
    const json cause = failure("127.0.0.1:" + std::to_string(other.port()) +
                               ":1:0:secret:" + std::string(254, 'n'));
    EXPECT_THAT(cause.value("what", ""), HasSubstr("an attribute cannot be packed"));
    EXPECT_EQ("a nas-identifier has at most 253 characters", cause.value("next", ""));
    EXPECT_EQ(0U, other.requestCount());
}

TEST_F(Login, SecondServerAnswers_FirstOnesCauseIsShownToo) {
    const RefusedPort refused;
    writeConfiguration("authserver " + entry(refused.port()) + ", " + entry(server().authPort()) +
                       "\n");
    const json answer = document(login("alice", "wonderland"), 0);
    EXPECT_EQ(at(server().authPort()), answer.at("server"));
    ASSERT_EQ(1U, answer.at("failed_servers").size());
    EXPECT_EQ("port closed", answer.at("failed_servers")[0].at("reason"));
}

TEST_F(Login, WrongInput_IsRefused) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    ProgramResult result = run(login("alice", "wonderland", "telepathy"));
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr("telepathy"));
    result = run({"login"});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("lanyardctl: USER is required\n", result.err);
    result = run(login(std::string(65, 'n'), "wonderland"));
    EXPECT_EQ(2, result.status);
    EXPECT_THAT(result.err, HasSubstr("a name has at most 64 characters"));
    result = run({"login", "alice", "--password-file", "/none"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("lanyardctl: cannot read /none: No such file or directory\n", result.err);
    result = run({"login", "alice", "-f", "/none.conf", "--password-file", "/dev/null"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("/none.conf"));
    EXPECT_THAT(result.err, EndsWith("\n"));
}

}  // namespace
}  // namespace lanyard::test::lanyardctl_login_test
