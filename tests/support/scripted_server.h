// A RADIUS server that follows a script: it records every datagram and answers each by the next
// action.
//
//     ScriptedServer server("secret", {silence(), accept(Attributes().addText(18, "Hello"))});
//     server.otherwise(reject());             // once the script is used up; silent by default
//     ... use server.host() and server.port() ...
//     ASSERT_TRUE(server.waitForRequests(2));
//     EXPECT_EQ("arctangent", revealPassword(server.request(0), "secret"));
//
// Actions and what they may be asked for on top:
//
//     accept(attributes)  reject(attributes)  challenge(attributes)  accountingResponse(attributes)
//     answer(code, attributes)
//         attributes: an Attributes, or a function that makes them of the request, which is what
//         encrypted keys need. A correct response authenticator comes by itself, a correct
//         Message-Authenticator with Attributes::addMessageAuthenticator().
//     sendRaw(bytes)      the datagram as it is
//     respond(function)   what the function makes of the request; std::nullopt to stay silent
//     silence()
//
//     .delayed(50ms)  .twice()  .truncatedTo(n)  .withTrailing(bytes)  .fromOtherPort()
//     .withWrongIdentifier()  .withWrongAuthenticator()  .withWrongMessageAuthenticator()
//     .withLengthField(n)     for answers alone; as ReplyFaults describes them
//
// The server has a thread of its own, which ends with the object, and a minute after the last request in any
// case.
// All functions may be called from any thread.
#ifndef LANYARD_TESTS_SUPPORT_SCRIPTED_SERVER_H
#define LANYARD_TESTS_SUPPORT_SCRIPTED_SERVER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/radius_wire.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

// One datagram that a server got. It is a ByteView of its bytes.
struct ReceivedRequest {
    Bytes bytes;
    std::chrono::steady_clock::time_point arrival;
    uint16_t sourcePort = 0;
    std::string sourceAddress;

    operator ByteView() const { return bytes; }

    [[nodiscard]] uint8_t code() const { return bytes.at(0); }
    [[nodiscard]] uint8_t identifier() const { return bytes.at(1); }
    [[nodiscard]] Bytes authenticator() const;
    [[nodiscard]] std::vector<Attribute> attributes() const { return parseAttributes(bytes); }
};

void PrintTo(const ReceivedRequest &request, std::ostream *stream);

// What the server does about one datagram.
class Action {
  public:
    using AttributeSource = std::function<Attributes(const ReceivedRequest &)>;
    using Responder = std::function<std::optional<Bytes>(const ReceivedRequest &)>;

    // Made by the functions below.
    explicit Action(Responder responder) : responder_(std::move(responder)) {}
    Action(uint8_t code, AttributeSource attributes)
        : code_(code), attributes_(std::move(attributes)) {}

    Action &delayed(std::chrono::milliseconds delay);
    Action &twice();
    Action &truncatedTo(size_t size);
    Action &withTrailing(ByteView bytes);
    Action &fromOtherPort();
    Action &withWrongIdentifier();
    Action &withWrongAuthenticator();
    Action &withWrongMessageAuthenticator();
    Action &withLengthField(uint16_t length);

  private:
    friend class ScriptedServer;

    [[nodiscard]] std::optional<Bytes> datagram(const ReceivedRequest &request,
                                                std::string_view secret) const;
    ReplyFaults &faults();

    Responder responder_;
    uint8_t code_ = 0;
    AttributeSource attributes_;
    ReplyFaults faults_;
    std::chrono::milliseconds delay_{0};
    unsigned copies_ = 1;
    std::optional<size_t> truncated_;
    Bytes trailing_;
    bool otherPort_ = false;
};

Action answer(uint8_t code, const Attributes &attributes = {});
Action answer(uint8_t code, Action::AttributeSource attributes);
Action accept(const Attributes &attributes = {});  // code 2
Action accept(Action::AttributeSource attributes);
Action reject(const Attributes &attributes = {});              // code 3
Action challenge(const Attributes &attributes = {});           // code 11
Action accountingResponse(const Attributes &attributes = {});  // code 5
Action sendRaw(Bytes datagram);
Action respond(Action::Responder responder);
Action silence();

// A UDP socket on the loopback interface. Nobody reads from it: it is a server that never answers.
class SilentPort {
  public:
    explicit SilentPort(const std::string &address = "127.0.0.1");

    [[nodiscard]] const std::string &host() const { return host_; }
    [[nodiscard]] uint16_t port() const { return port_; }
    [[nodiscard]] int socket() const { return socket_.get(); }

    // Takes and returns the datagrams that have arrived.
    [[nodiscard]] std::vector<Bytes> received() const;

  private:
    std::string host_;
    FileDescriptor socket_;
    uint16_t port_;
};

// A port that refuses: whoever sends to it is told that nobody is there. It stays taken meanwhile.
class RefusedPort {
  public:
    explicit RefusedPort(const std::string &address = "127.0.0.1");

    [[nodiscard]] const std::string &host() const { return port_.host(); }
    [[nodiscard]] uint16_t port() const { return port_.port(); }

  private:
    SilentPort port_;
};

class ScriptedServer {
  public:
    // Listens on an ephemeral port of the address, which is one of 127.0.0.0/8.
    explicit ScriptedServer(std::string secret, std::vector<Action> script = {},
                            const std::string &address = "127.0.0.1");
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;
    // Answers that are still delayed are not sent any more.
    ~ScriptedServer();

    [[nodiscard]] const std::string &host() const { return socket_.host(); }
    [[nodiscard]] uint16_t port() const { return socket_.port(); }
    [[nodiscard]] const std::string &secret() const { return secret_; }

    // Puts an action at the end of the script.
    ScriptedServer &then(Action action);
    // What to do about datagrams after the end of the script.
    ScriptedServer &otherwise(Action action);

    // Waits until that many datagrams have arrived in all; false when the time is over.
    [[nodiscard]] bool waitForRequests(
        size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

    [[nodiscard]] size_t requestCount() const;
    [[nodiscard]] std::vector<ReceivedRequest> requests() const;
    // The index-th datagram; an empty one with a failed test when there are not that many.
    [[nodiscard]] ReceivedRequest request(size_t index) const;
    // Actions of the script that no datagram has asked for.
    [[nodiscard]] size_t unusedActions() const;

  private:
    using Clock = std::chrono::steady_clock;

    struct Delivery {
        Bytes datagram;
        sockaddr_in destination{};
        unsigned copies = 1;
        bool otherPort = false;
    };

    void serve();
    void receive();
    void deliverDue();
    void deliver(const Delivery &delivery) const;

    const std::string secret_;
    const SilentPort socket_;
    const SilentPort otherSocket_;
    const FileDescriptor stop_;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::deque<Action> script_;
    Action otherwise_;
    std::vector<ReceivedRequest> requests_;
    std::multimap<Clock::time_point, Delivery> deliveries_;  // the thread's own
    std::thread thread_;
};

}  // namespace lanyard::test

#endif
