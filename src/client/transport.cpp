// The calls that wait: one exchange, one socket, one step at a time (RFC 2865 section 3).
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/descriptor.h"
#include "base/log.h"
#include "base/text.h"
#include "client/exchange.h"
#include "client/last_error.h"
#include "client/loop.h"
#include "client/receive.h"

namespace lanyard {
namespace {

const sockaddr *asAddress(const sockaddr_in *address) {
    return reinterpret_cast<const sockaddr *>(address);
}

// Binds to an ephemeral port, whose address it reads back.
bool bindToAnyPort(int socket, sockaddr_in &address) {
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof(address);
    return bind(socket, asAddress(&address), size) == 0 &&
           getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0;
}

// Waits until the socket is readable: 1, 0 after the time-out, -1 on an error.
int waitForReply(int socket, int32_t seconds) {
    pollfd waited{.fd = socket, .events = POLLIN, .revents = 0};
    const timespec timeout{.tv_sec = seconds, .tv_nsec = 0};
    return ppoll(&waited, 1, &timeout, nullptr);
}

// Takes an exchange through to its end, with a fresh socket for each server.
class Driver {
  public:
    explicit Driver(Exchange &exchange) : exchange_(exchange) {}

    void run() {
        for (Next next = exchange_.start(); next != Next::kEnd;) {
            next = take(next);
        }
    }

  private:
    Next take(Next step) {
        switch (step) {
            case Next::kServer:
                socket_.reset();
                return exchange_.nextServer();
            case Next::kOpen:
                return open();
            case Next::kSend:
                return send();
            default:
                return wait();
        }
    }

    Next fail(int32_t step) { return exchange_.failed(step, errno); }

    Next open() {
        socket_ = Descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (!socket_.isOpen()) {
            const int error = errno;
            radLogAs("radSendtoServer", kLogError, "radSendtoServer: socket: %s\n",
                     ErrorText(error).text());
            return exchange_.failed(RAD_STEP_SOCKET, error);
        }
        if (!bindToAnyPort(socket_.get(), local_)) {
            const int error = errno;
            radLogAs("radSendtoServer", kLogError, "radSendtoServer: bind() Failed: %s: %s\n",
                     exchange_.server().host, ErrorText(error).text());
            return exchange_.failed(RAD_STEP_BIND, error);
        }
        return exchange_.opened();
    }

    Next send() {
        const auto bytes = exchange_.sending().bytes();
        const auto &server = exchange_.address();
        return sendto(socket_.get(), bytes.data(), bytes.size(), 0, asAddress(&server),
                      sizeof(server)) < 0
                   ? fail(RAD_STEP_SEND)
                   : exchange_.sent();
    }

    Next wait() {
        const int ready = waitForReply(socket_.get(), exchange_.server().timeout);
        if (ready > 0) {
            return receive();
        }
        if (ready == 0) {
            return exchange_.timedOut();
        }
        const int error = errno;
        if (error == EINTR) {
            return Exchange::interrupted();
        }
        radLogAs("radSendtoServer", kLogError, "radSendtoServer: select() Failed: %s\n",
                 ErrorText(error).text());
        return exchange_.failed(RAD_STEP_WAIT, error);
    }

    Next receive() {
        const RadRequestDesc &server = exchange_.server();
        const RadRecvCtx context{.socket = socket_.get(),
                                 .host = server.host,
                                 .source = &local_,
                                 .secret = server.secret};
        Outcome outcome;
        const Datagram datagram = readDatagram(context, outcome);
        return datagram.owner ? exchange_.received(datagram.bytes())
                              : exchange_.failed(outcome.step, outcome.reason);
    }

    Exchange &exchange_;
    Descriptor socket_;
    sockaddr_in local_{};
};

int run(Exchange &exchange, RadPair **replyOut) {
    Driver(exchange).run();
    exchange.publishOutcomes();
    *replyOut = exchange.takeReply();
    return exchange.result();
}

int askServers(const char *function, int code, RadPair *pairs, RadPair **replyOut,
               int32_t *results) {
    forgetOutcomes();
    const ServerDefaults defaults = serverDefaults();  // before anything else: the log shows it
    if (!pairs || !replyOut) {
        return -1;
    }
    *replyOut = nullptr;
    ServerChoice choice;
    Outcome outcome;
    if (!findServers(function, code, defaults, choice, outcome)) {
        noteOutcome("", 0, outcome);
        return -1;
    }
    if (isResilient()) {
        return results ? askEachResiliently(choice, code, pairs, replyOut, results)
                       : askResiliently(choice, code, pairs, replyOut);
    }
    Exchange exchange(function, code, pairs, choice, results);
    return run(exchange, replyOut);
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radSendtoServer(const RadRequestDesc *desc, const RadPair *pairs, RadPair **replyOut) {
    forgetOutcomes();
    if (!desc || !pairs || !replyOut) {
        return -1;
    }
    *replyOut = nullptr;
    if (isResilient()) {
        return sendResiliently(*desc, pairs, replyOut);
    }
    Exchange exchange(*desc, pairs);
    return run(exchange, replyOut);
}

int radBuildAndSendReq(int code, RadPair *pairs, RadPair **replyOut) {
    return askServers(__func__, code, pairs, replyOut, nullptr);
}

int radBuildAndSendReqCheckAllServer(int code, RadPair *pairs, RadPair **replyOut,
                                     int32_t *results) {
    if (!results) {
        forgetOutcomes();
        if (replyOut) {
            *replyOut = nullptr;
        }
        return -1;
    }
    return askServers(__func__, code, pairs, replyOut, results);
}
