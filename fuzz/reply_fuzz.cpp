// A received packet: decoded, displayed, searched for vendor attributes, and processed as a reply.
//
// The identifier byte says which allocation fails; 0: none.
#include <array>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "fuzz/environment.h"

namespace {

using namespace lanyard::fuzz;

constexpr const char *kSecret = "secret";

void readVendorAttribute(const RadPair &pair, uint32_t vendor, int type) {
    uint8_t *data = nullptr;
    const int status = radVendorAttrGet(&pair, vendor, type, &data);
    require((status == 0) == (data != nullptr), "data are handed out on success alone");
    if (data != nullptr) {
        // As many bytes as the interface promises.
        const size_t size = vendor == RAD_VENDOR_MICROSOFT
                                ? size_t{static_cast<uint8_t>(pair.strValue[5])} - 2
                                : size_t{pair.numValue} - 4;
        const std::vector<uint8_t> read(data, data + size);
        palMemPartFree(radMemPartId, data);
    }
}

void readPair(const RadPair &pair) {
    require(radDictGetAttr(pair.attrNum) != nullptr, "a pair has an attribute of the dictionary");
    require(radPairValueLen(&pair) >= 0 && radPairValueLen(&pair) <= RAD_VALUE_MAX,
            "a value fits an attribute");
    radPairShow(&pair);
    if (pair.attrNum == RAD_ATTR_VENDOR_SPECIFIC) {
        for (const int type : {RAD_MS_CHAP_RESPONSE, RAD_MS_CHAP_CHALLENGE, RAD_MS_MPPE_SEND_KEY,
                               RAD_MS_MPPE_RECV_KEY, RAD_MS_CHAP2_RESPONSE}) {
            readVendorAttribute(pair, RAD_VENDOR_MICROSOFT, type);
        }
        readVendorAttribute(pair, 9, 1);
    }
    radPairListFree(radPairDup(&pair));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<uint8_t> bytes = packetFrom(data, size);
    if (bytes.empty()) {
        return 0;
    }
    auto *packet = reinterpret_cast<RadPacket *>(bytes.data());
    RadPacket request{};
    const size_t before = liveBlocks();
    failAllocation(packet->identifier);

    RadPair *list = nullptr;
    const int status = radPairGen(packet, &list);
    require(status == 0 || (status == -1 && list == nullptr), "a refused packet leaves no list");
    for (RadPair *pair = list; pair != nullptr; pair = radPairNext(pair)) {
        readPair(*pair);
        const int result = radPairUnpackDefault(pair, list, packet, &request, kSecret);
        require(result == 0 || result == -1, "an attribute is accepted or refused");
        readPair(*pair);
    }
    radPairListFree(list);

    failAllocation(0);
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
