#include "tests/unit/client/loop_fixture.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

#include <lanyard/radius/error.h>

namespace lanyard::test {

std::string newAddress() {
    static unsigned count = 0;
    ++count;
    return "127.77." + std::to_string(count / 250) + "." + std::to_string(1 + count % 250);
}

ServerEntry PlayedServer::entry(int timeout, int retries) const {
    return serverEntry(port_, timeout, retries);
}

std::optional<ReceivedRequest> PlayedServer::poll() const {
    ReceivedRequest request;
    request.bytes.resize(RAD_PACKET_MAX);
    sockaddr_in source{};
    socklen_t size = sizeof(source);
    const ssize_t length = recvfrom(port_.socket(), request.bytes.data(), request.bytes.size(),
                                    MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&source), &size);
    if (length < 0) {
        return std::nullopt;
    }
    request.bytes.resize(static_cast<size_t>(length));
    std::array<char, INET_ADDRSTRLEN> address{};
    inet_ntop(AF_INET, &source.sin_addr, address.data(), address.size());
    request.sourceAddress = address.data();
    request.sourcePort = ntohs(source.sin_port);
    return request;
}

ReceivedRequest PlayedServer::take() const {
    auto request = poll();
    EXPECT_TRUE(request) << "no request has arrived";
    return request.value_or(ReceivedRequest{.bytes = Bytes(kHeaderSize, 0),
                                            .arrival = {},
                                            .sourcePort = 9,
                                            .sourceAddress = "127.0.0.1"});
}

void PlayedServer::send(const ReceivedRequest &to, const Bytes &datagram) const {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(to.sourcePort);
    inet_pton(AF_INET, to.sourceAddress.c_str(), &address.sin_addr);
    EXPECT_EQ(static_cast<ssize_t>(datagram.size()),
              sendto(port_.socket(), datagram.data(), datagram.size(), 0,
                     reinterpret_cast<sockaddr *>(&address), sizeof(address)))
        << std::strerror(errno);
}

void PlayedServer::reply(const ReceivedRequest &to, uint8_t code, const Attributes &attributes,
                         const ReplyFaults &faults) const {
    send(to, makeReply(code, to, kSecret, attributes, faults));
}

void Answer::note(void *context, RadRequest *request, int code, RadPair *reply) {
    Answer &answer = *static_cast<Answer *>(context);
    ++answer.times;
    answer.code = code;
    answer.reply.reset(reply);
    answer.request = request;
    const RadLastError *error = radLastError();
    if (error != nullptr) {
        answer.step = error->step;
        answer.reason = error->reason;
        answer.tries = error->tries;
    }
    if (answer.meanwhile) {
        answer.meanwhile(answer);
    }
}

RadRequest *Loop::start(Answer &answer, int code, const RadPair *pairs) const {
    if (pairs != nullptr) {
        return radRequestStart(loop_, code, pairs, Answer::note, &answer);
    }
    RadPair *nemo = radPairNew(RAD_ATTR_USER_NAME, "nemo", 0);
    RadRequest *request = radRequestStart(loop_, code, nemo, Answer::note, &answer);
    radPairListFree(nemo);
    return request;
}

void Loop::finish() const {
    while (radLoopRun(loop_, -1) > 0) {
    }
}

bool Loop::isReadable(int milliseconds) const {
    pollfd waited{.fd = radLoopDescriptor(loop_), .events = POLLIN, .revents = 0};
    return ::poll(&waited, 1, milliseconds) == 1;
}

void LoopTest::TearDown() {
    for (const int option :
         {RAD_OPTION_RESILIENT + 0, RAD_OPTION_DEAD_TIME + 0, RAD_OPTION_STATUS_SERVER + 0,
          RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR + 0}) {
        radOptionSet(option, 0);
    }
    ExchangeTest::TearDown();
}

PairList LoopTest::accounting(uint32_t delay) {
    RadPair *list = nullptr;
    radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
    radPairAdd(&list, RAD_ATTR_ACCT_DELAY_TIME, &delay, 0);
    return PairList(list);
}

PairList LoopTest::withState(const std::string &state) {
    RadPair *list = nullptr;
    radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
    radPairAdd(&list, RAD_ATTR_STATE, state.c_str(), 0);
    return PairList(list);
}

PairList LoopTest::withEap() {
    RadPair *list = nullptr;
    radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
    radPairAdd(&list, RAD_ATTR_EAP_MESSAGE, "\x02\x01\x01\x04", 4);
    return PairList(list);
}

RadServerStatus LoopTest::statusOf(const PlayedServer &server) {
    RadServerStatus status{};
    for (int i = 0; radServerStatusAt(i, &status) == 0; ++i) {
        if (server.host() == status.host && server.port() == status.port) {
            return status;
        }
    }
    return {};
}

void LoopTest::expectAccepted(const Loop &loop, const PlayedServer &server) {
    Answer answer;
    ASSERT_NE(nullptr, loop.start(answer));
    server.reply(server.take(), RAD_CODE_ACCESS_ACCEPT);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(RAD_CODE_ACCESS_ACCEPT + 0, answer.code);
}

void LoopTest::makeDead(const Loop &loop, const PlayedServer &first, const PlayedServer &second) {
    Answer answer;
    ASSERT_NE(nullptr, loop.start(answer));
    for (int runs = 0; runs < 100 && statusOf(first).alive != 0; ++runs) {
        EXPECT_EQ(0, loop.run());
    }
    while (first.poll()) {
    }
    second.reply(second.take(), RAD_CODE_ACCESS_ACCEPT);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(RAD_CODE_ACCESS_ACCEPT + 0, answer.code);
    EXPECT_EQ(0, statusOf(first).alive);
}

}  // namespace lanyard::test
