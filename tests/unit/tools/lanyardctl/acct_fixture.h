// The accounting queue with the library that empties it, and a server.
#ifndef LANYARD_TESTS_LANYARDCTL_ACCOUNTING_FIXTURE_H
#define LANYARD_TESTS_LANYARDCTL_ACCOUNTING_FIXTURE_H

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tools/lanyardctl/accounting_queue.h"
#include "tools/lanyardctl/accounting_record.h"
#include "tools/lanyardctl/accounting_sender.h"

namespace lanyard::test {

class AccountingFixture : public testing::Test {
  protected:
    AccountingFixture() {
        lanyardctl::completeDictionary();
        server_.otherwise(respond([this](const ReceivedRequest &request) {
            return silentAbout_.contains(sessionOf(request))
                       ? std::nullopt
                       : std::optional(makeReply(RAD_CODE_ACCOUNTING_RESPONSE, request, "secret"));
        }));
    }

    static std::string sessionOf(const ReceivedRequest &request) {
        return toText(attributeValue(request, RAD_ATTR_ACCT_SESSION_ID));
    }

    static const lanyardctl::StatusType &status(const std::string &command) {
        return *std::find_if(lanyardctl::kStatusTypes.begin(), lanyardctl::kStatusTypes.end(),
                             [&command](const auto &row) { return row.command == command; });
    }
    static lanyardctl::Record record(const std::string &command, const std::string &session) {
        return lanyardctl::makeRecord(status(command), {session, {}, {}});
    }

    // What the server got, in its order: "start s1".
    [[nodiscard]] std::vector<std::string> received() const {
        std::vector<std::string> all;
        for (const ReceivedRequest &request : server_.requests()) {
            const uint8_t value = attributeValue(request, RAD_ATTR_ACCT_STATUS_TYPE).back();
            const auto *const row =
                std::find_if(lanyardctl::kStatusTypes.begin(), lanyardctl::kStatusTypes.end(),
                             [value](const auto &type) { return type.value == value; });
            all.push_back(std::string(row->command) + " " + sessionOf(request));
        }
        return all;
    }

    std::set<std::string> silentAbout_;  // to be set before anything is sent
    ScriptedServer server_{"secret"};
    const ConfiguredLibrary library_{{.acctServers = {serverEntry(server_)}}};
    const std::string file_ = library_.root().path("/accounting.db").string();
};

}  // namespace lanyard::test

#endif
