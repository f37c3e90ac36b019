#include "tests/unit/device/fixture.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "tests/support/guard_page.h"

namespace lanyard::test {
namespace {

std::vector<std::string> ofDevice(std::vector<std::string> lines) {
    std::erase_if(lines, [](const std::string &line) { return !line.starts_with("device "); });
    return lines;
}

}  // namespace

void MgmtTest::SetUp() {
    ConfTest::SetUp();
    root.write(kDictionary, "ATTRIBUTE Test-Text 250 string\n");
    database.nameDictionary(kDictionary);
}

void MgmtTest::TearDown() {
    EXPECT_EQ(0, radiusMgmtDeInit());
    ConfTest::TearDown();
}

void MgmtTest::open() {
    ASSERT_EQ(0, radiusMgmtInit(database.path(), "test"));
    log.clear();
}

std::vector<std::string> MgmtTest::told() const {
    return ofDevice(log.log());
}

std::vector<std::string> MgmtTest::problems() const {
    return ofDevice(log.problemLog());
}

std::vector<std::string> MgmtTest::hosts() {
    std::vector<std::string> all;
    if (const auto *servers = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS))) {
        std::transform(servers, servers + RAD_SERVERS_MAX, std::back_inserter(all),
                       [](const RadServer &server) {
                           return std::string(server.host != nullptr ? server.host : "");
                       });
    }
    return all;
}

size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

RadDbUpdateInfo notice(std::string_view table, int opCode, int32_t rowKey, int32_t rowId) {
    RadDbUpdateInfo info{};
    table.copy(static_cast<char *>(info.tableName), sizeof(info.tableName));
    info.opCode = opCode;
    info.rowKey = rowKey;
    info.rowId = rowId;
    return info;
}

std::string laidOut(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts) {
        all += text + '\0';
    }
    return all;
}

int deliver(const RadDbUpdateInfo &info, const std::optional<std::string> &oldValues) {
    const GuardedBuffer record(ByteView(reinterpret_cast<const uint8_t *>(&info), sizeof(info)));
    if (!oldValues) {
        return radiusMgmtDBUpdateHandler(record.data(), sizeof(info), nullptr, 0);
    }
    GuardedBuffer old(fromText(*oldValues));
    old.makeReadOnly();
    return radiusMgmtDBUpdateHandler(record.data(), sizeof(info), old.text(),
                                     static_cast<uint32_t>(old.size()));
}

}  // namespace lanyard::test
