// What stands for the loop in a library without one: no request is resilient, and nothing is known of
// servers.
#include "client/loop.h"
#include "client/server_table.h"

namespace lanyard {

bool isResilient() {
    return false;
}

int askResiliently(const ServerChoice & /*choice*/, int /*code*/, const RadPair * /*pairs*/,
                   RadPair ** /*replyOut*/) {
    return -1;
}

int askEachResiliently(const ServerChoice & /*choice*/, int /*code*/, const RadPair * /*pairs*/,
                       RadPair ** /*replyOut*/, int32_t * /*results*/) {
    return -1;
}

int sendResiliently(const RadRequestDesc & /*desc*/, const RadPair * /*pairs*/,
                    RadPair ** /*replyOut*/) {
    return -1;
}

bool isAlive(const sockaddr_in & /*server*/) {
    return true;
}

bool claimProbe(const sockaddr_in & /*server*/, int64_t /*now*/) {
    return false;
}

void noteSent(const sockaddr_in & /*server*/, bool /*again*/) {}
void noteLeft(const sockaddr_in & /*server*/) {}
void noteHeard(const sockaddr_in & /*server*/, int64_t /*now*/) {}
void noteReply(const sockaddr_in & /*server*/, uint8_t /*code*/, int64_t /*roundTrip*/) {}
void noteStray(const sockaddr_in & /*server*/, int32_t /*reason*/) {}
void noteTimeout(const sockaddr_in & /*server*/) {}
void noteSilence(const sockaddr_in & /*server*/, int64_t /*since*/, int64_t /*now*/) {}
void noteState(std::span<const uint8_t> /*state*/, const sockaddr_in & /*server*/) {}

bool findStateOrigin(std::span<const uint8_t> /*state*/, sockaddr_in & /*server*/) {
    return false;
}

}  // namespace lanyard
