// What the tests of the management functions start from: the library started and not configured, a
// device's database that names the dictionary kDictionary, and a record of the log. The database is
// not open. At the end nothing may be left.
#ifndef LANYARD_TESTS_UNIT_MGMT_FIXTURE_H
#define LANYARD_TESTS_UNIT_MGMT_FIXTURE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/mgmt.h>

#include "tests/support/log_recorder.h"
#include "tests/support/temporary_root.h"
#include "tests/unit/conf/conf_fixture.h"
#include "tests/unit/device/database_file.h"

namespace lanyard::test {

// The dictionary, which defines attribute number 250 "Test-Text" beside nothing else.
inline constexpr const char *kDictionary = "/nexa2.0/etc/radius.dict";

class MgmtTest : public ConfTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Opens the database, and forgets what was logged over it.
    void open();

    // Lines of the management functions as EXPECT_LOG takes them, all or those of the levels 4, 8 and
    // 16.
    [[nodiscard]] std::vector<std::string> told() const;
    [[nodiscard]] std::vector<std::string> problems() const;

    // The hosts of the eight authentication slots, "" for a free one; none when the list is unset.
    static std::vector<std::string> hosts();

    TemporaryRoot root;
    const DatabaseFile database{root.path("/device.db")};
};

// Descriptors of this process.
size_t openDescriptors();

// A change notice.
RadDbUpdateInfo notice(std::string_view table, int opCode, int32_t rowKey = 0, int32_t rowId = 0);

// Texts laid end to end, each with its NUL.
std::string laidOut(const std::vector<std::string> &texts);

// Delivers a notice: it and the old values end where their guards begin.
int deliver(const RadDbUpdateInfo &info, const std::optional<std::string> &oldValues = {});

}  // namespace lanyard::test

#endif
