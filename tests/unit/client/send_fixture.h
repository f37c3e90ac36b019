// One request to one server, of which radSendtoServer() is given a description.
#ifndef LANYARD_TESTS_UNIT_CLIENT_SEND_FIXTURE_H
#define LANYARD_TESTS_UNIT_CLIENT_SEND_FIXTURE_H

#include <gtest/gtest.h>

#include <lanyard/radius/engine.h>

#include "tests/support/configured_library.h"
#include "tests/support/failing_partition.h"
#include "tests/support/pair_list.h"
#include "tests/unit/client/fixture.h"

namespace lanyard::test {

class SendTest : public EngineTest {
  protected:
    static constexpr const char *kSecret = "secret";
    static constexpr int kPlenty = 20;  // seconds that no test ever waits for

    // A description of a request to a server: ScriptedServer or SilentPort.
    template <typename Server>
    static RadRequestDesc to(const Server &server, int timeout, int retries = 0, uint8_t code = 1) {
        return {.code = code,
                .identifier = 7,
                .host = server.host().c_str(),
                .port = server.port(),
                .timeout = timeout,
                .retries = retries,
                .secret = kSecret};
    }

    int send(const RadRequestDesc &desc, const PairRecords &pairs) {
        RadPair stale{};
        RadPair *list = &stale;
        const int result = radSendtoServer(&desc, pairs.list(), &list);
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        return result;
    }
    int send(const RadRequestDesc &desc) { return send(desc, pairs_); }

    // Expects a failure that leaves nothing behind; the base class counts the sockets.
    void expectFailure(const RadRequestDesc &desc, const PairRecords &pairs) {
        const size_t blocksBefore = liveBlocks();
        EXPECT_EQ(-1, send(desc, pairs));
        EXPECT_EQ(nullptr, reply_);
        EXPECT_EQ(blocksBefore, liveBlocks());
    }
    void expectFailure(const RadRequestDesc &desc) { expectFailure(desc, pairs_); }

    ConfiguredLibrary library_;
    const PairRecords pairs_{{textPair(1, "nemo", "User-Name")}};
    PairList reply_;
};

}  // namespace lanyard::test

#endif
