#include "tests/support/configured_library.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <unistd.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/failing_partition.h"

namespace lanyard::test {

// Both are there only in a program that links lanyard-test-partition: here the references are weak.
// NOLINTBEGIN(readability-redundant-declaration): the attribute is what they add
[[gnu::weak]] size_t heapBlocks();
[[gnu::weak]] std::vector<PartitionRecord> partitions();
// NOLINTEND(readability-redundant-declaration)

namespace {

size_t blocksOfTheHeap() {
    return heapBlocks != nullptr ? heapBlocks() : 0;
}

size_t blocksAtDestroy(PalMemPartId part) {
    if (partitions == nullptr) {
        return 0;
    }
    const std::vector<PartitionRecord> records = partitions();
    const auto record = std::find_if(records.begin(), records.end(),
                                     [part](const auto &entry) { return entry.id == part; });
    return record != records.end() ? record->blocksAtDestroy : 0;
}

std::string hostName() {
    std::array<char, 256> name{};
    EXPECT_EQ(0, gethostname(name.data(), name.size() - 1));
    return name.data();
}

template <typename Port>
ServerEntry entryOf(const Port &server, int timeout, int retries) {
    ServerEntry entry;
    entry.host = server.host();
    entry.port = server.port();
    entry.timeout = timeout;
    entry.retries = retries;
    return entry;
}

}  // namespace

ServerEntry serverEntry(const ScriptedServer &server, int timeout, int retries) {
    ServerEntry entry = entryOf(server, timeout, retries);
    entry.secret = server.secret();
    return entry;
}

ServerEntry serverEntry(const SilentPort &server, int timeout, int retries) {
    return entryOf(server, timeout, retries);
}

ConfiguredLibrary::ConfiguredLibrary(const LibraryConfiguration &configuration)
    : heapBlocksBefore_(blocksOfTheHeap()) {
    EXPECT_EQ(0U, radMemPartId) << "the library was left started";
    root_.write("/var/hosts", "127.0.0.1 " + hostName() + "\n");
    if (configuration.partition > 0) {
        EXPECT_EQ(0, radMemInit(configuration.partition));
    }
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ(0, radConfSetTimeout(configuration.timeout.c_str()));
    EXPECT_EQ(0, radConfSetRetries(configuration.retries.c_str()));
    for (const ServerEntry &server : configuration.authServers) {
        EXPECT_EQ(0, radConfAddAuthServ(server.host.c_str(), server.port, server.timeout,
                                        server.retries, server.secret.c_str(),
                                        server.extra ? server.extra->c_str() : nullptr))
            << server.host << ':' << server.port;
    }
    for (const ServerEntry &server : configuration.acctServers) {
        EXPECT_EQ(0, radConfAddAcctServ(server.host.c_str(), server.port, server.timeout,
                                        server.retries, server.secret.c_str()))
            << server.host << ':' << server.port;
    }
}

ConfiguredLibrary::~ConfiguredLibrary() {
    const PalMemPartId part = radMemPartId;
    EXPECT_EQ(0, radFuncTblUninstall());
    EXPECT_EQ(0, radLibExit());
    EXPECT_EQ(0U, blocksAtDestroy(part)) << "blocks of the library's partition are left over";
    EXPECT_EQ(heapBlocksBefore_, blocksOfTheHeap()) << "blocks of the heap are left over";
}

}  // namespace lanyard::test
