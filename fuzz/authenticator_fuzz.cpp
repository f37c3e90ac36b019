// A received packet before it is decoded: the search for an attribute, and the check of the
// Message-Authenticator.
#include <algorithm>
#include <array>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "fuzz/environment.h"

namespace {

using namespace lanyard::fuzz;

constexpr const char *kSecret = "secret";
constexpr std::array<uint8_t, 16> kRequestAuthenticator{};

void locate(const std::vector<uint8_t> &attributes, int attrNum) {
    const uint8_t *first = attributes.data();
    const uint8_t *found = radPairLocate(first, static_cast<int>(attributes.size()), attrNum);
    if (found != nullptr) {
        require(found >= first && found + 2 <= first + attributes.size(),
                "the header that is found lies in the area");
        require(*found == attrNum && found[1] >= 2, "what is found is what was asked for");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<uint8_t> bytes = packetFrom(data, size);
    if (bytes.empty()) {
        return 0;
    }
    const std::vector<uint8_t> attributes(bytes.begin() + sizeof(RadPacket), bytes.end());
    for (const int attrNum : {int{RAD_ATTR_MESSAGE_AUTHENTICATOR}, int{RAD_ATTR_STATE}, 0, 255}) {
        locate(attributes, attrNum);
    }

    const std::vector<uint8_t> before = bytes;
    const int status = radCheckMsgAuth(reinterpret_cast<RadPacket *>(bytes.data()), kSecret,
                                       kRequestAuthenticator.data());
    require(status == 0 || status == -1, "a Message-Authenticator matches or does not");
    // On failure the header may keep the request's authenticator; nothing else may change.
    const auto afterHeader = bytes.begin() + sizeof(RadPacket);
    require(std::equal(afterHeader, bytes.end(), before.begin() + sizeof(RadPacket)),
            "the attributes stay as they are");
    require(status == -1 || bytes == before, "a packet that matches stays as it is");
    return 0;
}
