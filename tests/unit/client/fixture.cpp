#include "tests/unit/client/fixture.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include <palcore.h>

namespace lanyard::test {
namespace {

Hooks::Pack packFunction;
Hooks::Unpack unpackFunction;

int callPack(uint8_t *value, uint8_t *length, const RadPair *pair, const char *secret,
             RadPacket *packet) {
    return packFunction(value, length, pair, secret, packet);
}

int callUnpack(RadPair *pair, RadPair *list, RadPacket *reply, RadPacket *request,
               const char *secret) {
    return unpackFunction(pair, list, reply, request, secret);
}

RadPair unnamedPair(int attrNum, int type, const std::string &name) {
    RadPair pair{};
    name.copy(static_cast<char *>(pair.name), sizeof(pair.name) - 1);
    pair.attrNum = attrNum;
    pair.type = type;
    return pair;
}

int drawFrom(void *context, uint8_t *out, uint32_t length) {
    const Bytes &bytes = *static_cast<const Bytes *>(context);
    if (bytes.empty()) {
        return -1;
    }
    for (uint32_t i = 0; i < length; ++i) {
        out[i] = bytes[i % bytes.size()];
    }
    return 0;
}

}  // namespace

size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

void EngineTest::SetUp() {
    descriptorsBefore_ = openDescriptors();
}

void EngineTest::TearDown() {
    EXPECT_EQ(descriptorsBefore_, openDescriptors()) << "a descriptor was left open";
}

RadPair textPair(int attrNum, std::string_view text, const std::string &name) {
    RadPair pair = unnamedPair(attrNum, RAD_TYPE_STRING, name);
    text.copy(static_cast<char *>(pair.strValue), RAD_VALUE_MAX);
    pair.numValue = static_cast<uint32_t>(text.size());
    return pair;
}

RadPair numberPair(int attrNum, uint32_t number, int type, const std::string &name) {
    RadPair pair = unnamedPair(attrNum, type, name);
    pair.numValue = number;
    return pair;
}

PairRecords::PairRecords(std::vector<RadPair> pairs) : pairs_(std::move(pairs)) {
    for (size_t i = 1; i < pairs_.size(); ++i) {
        pairs_[i - 1].next = &pairs_[i];
    }
}

std::vector<int> attrNums(const RadPair *list) {
    std::vector<int> numbers;
    for (; list != nullptr; list = list->next) {
        numbers.push_back(list->attrNum);
    }
    return numbers;
}

Hooks::Hooks(Pack pack, Unpack unpack) {
    packFunction = std::move(pack);
    unpackFunction = std::move(unpack);
    const RadFuncTbl table{.radPackHook = packFunction ? callPack : nullptr,
                           .radUnpackHook = unpackFunction ? callUnpack : nullptr};
    EXPECT_EQ(0, radFuncTblInstall(&table));
}

Hooks::~Hooks() {
    EXPECT_EQ(0, radFuncTblUninstall());
    packFunction = {};
    unpackFunction = {};
}

RandomBytes::RandomBytes(Bytes bytes) : bytes_(std::move(bytes)) {
    EXPECT_EQ(0, palRandLibInit(drawFrom, &bytes_));
}

RandomBytes::~RandomBytes() {
    EXPECT_EQ(0, palRandLibInit(nullptr, nullptr));
}

std::vector<RadPair> example::requestPairs() {
    return {textPair(RAD_ATTR_USER_NAME, "nemo", "User-Name"),
            textPair(RAD_ATTR_USER_PASSWORD, "arctangent", "User-Password"),
            numberPair(RAD_ATTR_NAS_IP_ADDRESS, 0xc0a80110, RAD_TYPE_IPADDR, "NAS-IP-Address"),
            numberPair(5, 3, RAD_TYPE_INTEGER, "NAS-Port")};
}

}  // namespace lanyard::test
