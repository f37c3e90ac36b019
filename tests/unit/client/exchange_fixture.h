// One request to the configured servers, by either variant of the exchange.
#ifndef LANYARD_TESTS_ENGINE_EXCHANGE_FIXTURE_H
#define LANYARD_TESTS_ENGINE_EXCHANGE_FIXTURE_H

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/unit/client/fixture.h"
#include "tests/unit/client/system_calls.h"

namespace lanyard::test {

constexpr const char *kSecret = "secret";
constexpr int kAccess = RAD_CODE_ACCESS_REQUEST;
constexpr int kAccounting = RAD_CODE_ACCOUNTING_REQUEST;
constexpr int kPlenty = 20;  // seconds that no test ever waits for

// Drops the secret of a server, which no configuration call can do.
inline void dropSecret(const ServerEntry &entry) {
    auto *const slots = static_cast<RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
    ASSERT_NE(nullptr, slots);
    auto *const slot = std::find_if(slots, slots + RAD_SERVERS_MAX, [&](const RadServer &server) {
        return server.host != nullptr && server.host == entry.host && server.port == entry.port;
    });
    ASSERT_NE(slots + RAD_SERVERS_MAX, slot);
    palMemPartFree(radMemPartId, slot->secret);
    slot->secret = nullptr;
}

// The machine is called "gateway" and has the address 127.1.2.3.
class ExchangeTest : public EngineTest {
  protected:
    static constexpr int32_t kUntouched = 4711;

    int exchange(int code, RadPair *pairs) {
        RadPair stale{};
        RadPair *list = &stale;
        const int result = radBuildAndSendReq(code, pairs, &list);
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        return result;
    }
    int exchange(int code) { return exchange(code, nemo().get()); }

    int exchangeWithAll(int code, RadPair *pairs) {
        results_.fill(kUntouched);
        RadPair stale{};
        RadPair *list = &stale;
        const int result = radBuildAndSendReqCheckAllServer(code, pairs, &list, results_.data());
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        return result;
    }
    int exchangeWithAll(int code) { return exchangeWithAll(code, nemo().get()); }

    // The results that were stored; fails the test when one lies after a slot without.
    std::vector<int32_t> results() const {
        const auto *const end = std::find(results_.begin(), results_.end(), kUntouched);
        EXPECT_EQ(std::count(end, results_.end(), kUntouched), results_.end() - end);
        return {results_.begin(), end};
    }

    static PairList nemo() {
        RadPair *list = nullptr;
        radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
        return PairList(list);
    }

    const HostName name_{"gateway"};
    const ResolverEntry address_{"gateway", "127.1.2.3"};
    std::array<int32_t, RAD_SERVERS_MAX> results_{};
    PairList reply_;
};

}  // namespace lanyard::test

#endif
