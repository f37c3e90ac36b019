// Key information: built of the attributes of a reply, and read by the authenticator. The first byte chooses:
// a code and attributes for the relay to build a block of, or a block.
#include <cstring>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/relay.h>
#include <palcore.h>

#include "fuzz/environment.h"
#include "tools/pnac_wired/relay_record.h"

namespace {

using namespace lanyard::fuzz;
namespace pnac = lanyard::pnac;

// Whether what was read lies in what was given.
bool isWithin(ByteView part, ByteView whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
}

std::optional<pnac::KeyInfo> read(const Bytes &block) {
    auto info = pnac::parseKeyInfo(block);
    if (info) {
        require(isWithin(info->recvKey, block) && isWithin(info->sendKey, block) &&
                    isWithin(info->vlan, block),
                "what is read lies in the block");
    }
    return info;
}

void build(int code, const Bytes &attributes) {
    Bytes packet(sizeof(RadPacket));
    packet.insert(packet.end(), attributes.begin(), attributes.end());
    packet[2] = static_cast<uint8_t>(packet.size() >> 8);
    packet[3] = static_cast<uint8_t>(packet.size());
    RadPair *list = nullptr;
    if (radPairGen(reinterpret_cast<RadPacket *>(packet.data()), &list) != 0) {
        return;
    }
    uint8_t *block = nullptr;
    uint32_t size = 0;
    const int status = radEapKeyInfoBuild(list, &block, &size, code);
    require((block != nullptr) == (size > 0) && (status == 0 || block == nullptr),
            "a block has a size");
    const RadPair *session = radPairGet(list, RAD_ATTR_SESSION_TIMEOUT);
    if (block != nullptr) {
        const auto info = read({block, block + size});
        require(info.has_value(), "what the relay builds the authenticator reads");
        require(info->session.has_value() == (session != nullptr) &&
                    (session == nullptr || info->session->seconds == session->numValue),
                "the session lasts as long as the server says");
        palMemPartFree(radMemPartId, block);
    } else {
        require(session == nullptr || status != 0, "a session is in a block");
    }
    radPairListFree(list);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Script script(data, size);
    const size_t before = liveBlocks();
    const uint8_t kind = script.u8();
    if ((kind & 1) != 0) {
        failAllocation(kind >> 4);
        build((kind & 2) != 0 ? RAD_CODE_ACCESS_CHALLENGE : RAD_CODE_ACCESS_ACCEPT, script.rest());
        failAllocation(0);
    } else {
        read(script.rest());
    }
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
