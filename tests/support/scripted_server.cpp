#include "tests/support/scripted_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace lanyard::test {
namespace {

constexpr auto kLifetime = std::chrono::minutes(1);  // without a request

sockaddr_in socketAddress(const std::string &dotted, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (inet_pton(AF_INET, dotted.c_str(), &address.sin_addr) != 1 || !dotted.starts_with("127.")) {
        throw std::invalid_argument("not an address of the loopback interface: " + dotted);
    }
    return address;
}

const sockaddr *generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

uint16_t boundPort(int socket, const std::string &dotted) {
    sockaddr_in address = socketAddress(dotted, 0);
    socklen_t size = sizeof(address);
    checked(bind(socket, generic(address), size), "bind");
    checked(getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size), "getsockname");
    return ntohs(address.sin_port);
}

struct Datagram {
    Bytes bytes;
    sockaddr_in source{};
};

// The datagram that has been waiting longest; none when no one waits.
std::optional<Datagram> nextDatagram(int socket) {
    Datagram datagram;
    datagram.bytes.resize(65536);
    socklen_t size = sizeof(datagram.source);
    const ssize_t length =
        recvfrom(socket, datagram.bytes.data(), datagram.bytes.size(), MSG_DONTWAIT,
                 reinterpret_cast<sockaddr *>(&datagram.source), &size);
    if (length < 0) {
        return std::nullopt;
    }
    datagram.bytes.resize(static_cast<size_t>(length));
    return datagram;
}

// A thread that is started meanwhile gets no signal: those of the process are for the code under
// test.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_{};
};

}  // namespace

Bytes ReceivedRequest::authenticator() const {
    if (bytes.size() < kHeaderSize) {
        throw std::length_error("shorter than a RADIUS header");
    }
    return {bytes.begin() + 4, bytes.begin() + kHeaderSize};
}

void PrintTo(const ReceivedRequest &request, std::ostream *stream) {
    *stream << "{from " << request.sourceAddress << ':' << request.sourcePort << ", "
            << toHex(request.bytes) << '}';
}

Action &Action::delayed(std::chrono::milliseconds delay) {
    delay_ = delay;
    return *this;
}

Action &Action::twice() {
    copies_ = 2;
    return *this;
}

Action &Action::truncatedTo(size_t size) {
    truncated_ = size;
    return *this;
}

Action &Action::withTrailing(ByteView bytes) {
    trailing_.assign(bytes.begin(), bytes.end());
    return *this;
}

Action &Action::fromOtherPort() {
    otherPort_ = true;
    return *this;
}

Action &Action::withWrongIdentifier() {
    faults().wrongIdentifier = true;
    return *this;
}

Action &Action::withWrongAuthenticator() {
    faults().wrongAuthenticator = true;
    return *this;
}

Action &Action::withWrongMessageAuthenticator() {
    faults().wrongMessageAuthenticator = true;
    return *this;
}

Action &Action::withLengthField(uint16_t length) {
    faults().lengthField = length;
    return *this;
}

ReplyFaults &Action::faults() {
    if (!attributes_) {
        throw std::logic_error("only an answer has what could be wrong");
    }
    return faults_;
}

std::optional<Bytes> Action::datagram(const ReceivedRequest &request,
                                      std::string_view secret) const {
    std::optional<Bytes> datagram =
        attributes_ ? makeReply(code_, request, secret, attributes_(request), faults_)
                    : responder_(request);
    if (datagram) {
        if (truncated_) {
            datagram->resize(std::min(*truncated_, datagram->size()));
        }
        datagram->insert(datagram->end(), trailing_.begin(), trailing_.end());
    }
    return datagram;
}

Action answer(uint8_t code, const Attributes &attributes) {
    return answer(code, [attributes](const ReceivedRequest & /*request*/) { return attributes; });
}

Action answer(uint8_t code, Action::AttributeSource attributes) {
    return {code, std::move(attributes)};
}

Action accept(const Attributes &attributes) {
    return answer(2, attributes);
}

Action accept(Action::AttributeSource attributes) {
    return answer(2, std::move(attributes));
}

Action reject(const Attributes &attributes) {
    return answer(3, attributes);
}

Action challenge(const Attributes &attributes) {
    return answer(11, attributes);
}

Action accountingResponse(const Attributes &attributes) {
    return answer(5, attributes);
}

Action sendRaw(Bytes datagram) {
    return respond([datagram = std::move(datagram)](const ReceivedRequest & /*request*/) {
        return std::optional(datagram);
    });
}

Action respond(Action::Responder responder) {
    return Action(std::move(responder));
}

Action silence() {
    return respond([](const ReceivedRequest & /*request*/) { return std::nullopt; });
}

SilentPort::SilentPort(const std::string &address)
    : host_(address),
      socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"),
      port_(boundPort(socket_.get(), address)) {}

std::vector<Bytes> SilentPort::received() const {
    std::vector<Bytes> datagrams;
    while (auto datagram = nextDatagram(socket_.get())) {
        datagrams.push_back(std::move(datagram->bytes));
    }
    return datagrams;
}

// A connected socket takes datagrams of its peer alone, and its peer is itself.
RefusedPort::RefusedPort(const std::string &address) : port_(address) {
    const sockaddr_in self = socketAddress(address, port_.port());
    checked(connect(port_.socket(), generic(self), sizeof(self)), "connect");
}

ScriptedServer::ScriptedServer(std::string secret, std::vector<Action> script,
                               const std::string &address)
    : secret_(std::move(secret)),
      socket_(address),
      otherSocket_(address),
      stop_(eventfd(0, EFD_CLOEXEC), "eventfd"),
      script_(script.begin(), script.end()),
      otherwise_(silence()) {
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
    eventfd_write(stop_.get(), 1);
    thread_.join();
}

ScriptedServer &ScriptedServer::then(Action action) {
    const std::lock_guard lock(mutex_);
    script_.push_back(std::move(action));
    return *this;
}

ScriptedServer &ScriptedServer::otherwise(Action action) {
    const std::lock_guard lock(mutex_);
    otherwise_ = std::move(action);
    return *this;
}

bool ScriptedServer::waitForRequests(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

size_t ScriptedServer::requestCount() const {
    const std::lock_guard lock(mutex_);
    return requests_.size();
}

std::vector<ReceivedRequest> ScriptedServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

ReceivedRequest ScriptedServer::request(size_t index) const {
    const std::lock_guard lock(mutex_);
    if (index >= requests_.size()) {
        ADD_FAILURE() << "only " << requests_.size() << " requests have arrived";
        return {};
    }
    return requests_[index];
}

size_t ScriptedServer::unusedActions() const {
    const std::lock_guard lock(mutex_);
    return script_.size();
}

void ScriptedServer::serve() {
    Clock::time_point end = Clock::now() + kLifetime;
    std::array<pollfd, 2> watched = {{{stop_.get(), POLLIN, 0}, {socket_.socket(), POLLIN, 0}}};
    while (Clock::now() < end) {
        deliverDue();
        const Clock::time_point next =
            deliveries_.empty() ? end : std::min(end, deliveries_.begin()->first);
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
        poll(watched.data(), watched.size(), std::max(0, static_cast<int>(wait.count())));
        if (watched[0].revents != 0) {
            return;
        }
        if (watched[1].revents != 0) {
            receive();
            end = Clock::now() + kLifetime;
        }
    }
}

void ScriptedServer::receive() {
    auto datagram = nextDatagram(socket_.socket());
    if (!datagram) {
        return;
    }
    std::array<char, INET_ADDRSTRLEN> address{};
    inet_ntop(AF_INET, &datagram->source.sin_addr, address.data(), address.size());
    const ReceivedRequest request{std::move(datagram->bytes), Clock::now(),
                                  ntohs(datagram->source.sin_port), address.data()};
    std::optional<Action> action;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        if (script_.empty()) {
            action = otherwise_;
        } else {
            action = std::move(script_.front());
            script_.pop_front();
        }
    }
    arrived_.notify_all();
    try {
        if (auto bytes = action->datagram(request, secret_)) {
            deliveries_.emplace(
                request.arrival + action->delay_,
                Delivery{std::move(*bytes), datagram->source, action->copies_, action->otherPort_});
        }
    } catch (const std::exception &error) {
        ADD_FAILURE() << "the scripted server cannot answer " << testing::PrintToString(request)
                      << ": " << error.what();
    }
}

void ScriptedServer::deliverDue() {
    while (!deliveries_.empty() && deliveries_.begin()->first <= Clock::now()) {
        deliver(deliveries_.extract(deliveries_.begin()).mapped());
    }
}

void ScriptedServer::deliver(const Delivery &delivery) const {
    const SilentPort &from = delivery.otherPort ? otherSocket_ : socket_;
    for (unsigned copy = 0; copy < delivery.copies; ++copy) {
        const ssize_t sent =
            sendto(from.socket(), delivery.datagram.data(), delivery.datagram.size(), 0,
                   generic(delivery.destination), sizeof(delivery.destination));
        EXPECT_EQ(static_cast<ssize_t>(delivery.datagram.size()), sent) << std::strerror(errno);
    }
}

}  // namespace lanyard::test
