// What the tests of the two server lists share.
#ifndef LANYARD_TESTS_UNIT_CONF_SERVERS_FIXTURE_H
#define LANYARD_TESTS_UNIT_CONF_SERVERS_FIXTURE_H

#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test {

class Servers : public ConfTest {
  protected:
    // The hosts in the eight authentication slots, "" for a free one.
    static std::vector<std::string> hosts() {
        std::vector<std::string> all;
        for (const RadServer &server : slots(RAD_SERVER_AUTH)) {
            all.emplace_back(server.host != nullptr ? server.host : "");
        }
        return all;
    }
};

}  // namespace lanyard::test

#endif
