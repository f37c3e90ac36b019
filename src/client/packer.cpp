// From a pair list to the attributes of a request (RFC 2865 section 5).
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstring>
#include <span>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>

#include "attr/attribute.h"
#include "base/log.h"
#include "base/partition.h"
#include "base/wire.h"
#include "client/authenticator.h"
#include "client/md5.h"

namespace lanyard {
namespace {

// Bytes of an attribute on the wire: none for a pair that drops out of the request without an error;
// too many for the length byte where the value is too long.
uint64_t encodedLength(const RadPair &pair) {
    const uint64_t length = pair.numValue;
    if (pair.attrNum == RAD_ATTR_USER_PASSWORD) {
        return kAttributeHeaderSize +
               (length + kHidingBlockSize - 1) / kHidingBlockSize * kHidingBlockSize;
    }
    if (pair.attrNum == RAD_ATTR_MESSAGE_AUTHENTICATOR) {
        return kAttributeHeaderSize + RAD_DIGEST_SIZE;
    }
    switch (pair.type) {
        case RAD_TYPE_STRING:
            return kAttributeHeaderSize + length;
        case RAD_TYPE_INTEGER:
        case RAD_TYPE_IPADDR:
        case RAD_TYPE_DATE:
            return kAttributeHeaderSize + kNumberSize;
        default:
            return 0;
    }
}

// Pads and hides a password (RFC 2865 section 5.2). The empty one is a value of no blocks.
int encodePassword(uint8_t *value, size_t paddedSize, const RadPair &pair, const char *secret,
                   const RadPacket *request) {
    if (!secret || !request) {
        return -1;
    }
    if (paddedSize == 0) {
        return 0;
    }
    const auto padded = allocateSecret(paddedSize);
    if (!padded) {
        return -1;
    }
    std::memcpy(padded.get(), pair.strValue, pair.numValue);
    return radMd5Crypt(secret, request->authenticator, nullptr, 0, padded.get(),
                       static_cast<int>(paddedSize), value, 0);
}

int encodeValue(uint8_t *value, size_t size, const RadPair &pair, const char *secret,
                RadPacket *request) {
    if (pair.attrNum == RAD_ATTR_USER_PASSWORD) {
        return encodePassword(value, size, pair, secret, request);
    }
    if (pair.attrNum == RAD_ATTR_MESSAGE_AUTHENTICATOR) {
        const auto packet = request ? Packet::ofCaller(request) : std::nullopt;
        if (!secret || !packet) {
            return -1;
        }
        signMessage(*packet, secret, value);
    } else if (pair.type == RAD_TYPE_STRING) {
        std::memcpy(value, pair.strValue, size);
    } else {
        ByteWriter({value, kNumberSize}).u32(pair.numValue);
    }
    return 0;
}

// Encodes one attribute, if it is not longer than `room`; without a place for its value it only
// measures.
int encode(uint8_t *value, uint8_t &length, size_t room, const RadPair &pair, const char *secret,
           RadPacket *request) {
    const uint64_t encoded = encodedLength(pair);
    if (encoded > std::min(room, kAttributeMax)) {
        return -1;
    }
    length = static_cast<uint8_t>(encoded);
    return value && length > 0
               ? encodeValue(value, length - kAttributeHeaderSize, pair, secret, request)
               : 0;
}

RadPackHook packHook() {
    return pRadFuncTbl ? pRadFuncTbl->radPackHook : nullptr;
}

// Measures one attribute: the pack hook's answer, or the default one where the hook passes.
// The length has its place in a header: a hook may read the type in front of it.
int measureAttribute(const RadPair &pair, uint8_t &length) {
    std::array<uint8_t, kAttributeHeaderSize> header{static_cast<uint8_t>(pair.attrNum), 0};
    const RadPackHook hook = packHook();
    int status = hook ? hook(nullptr, &header[1], &pair, nullptr, nullptr) : 1;
    if (status == 1) {
        status = encode(nullptr, header[1], kAttributeMax, pair, nullptr, nullptr);
    }
    length = header[1];
    return status;
}

int measure(const RadPair *pairs, uint32_t *total) {
    *total = 0;
    uint32_t sum = 0;
    for (const RadPair *pair = pairs; pair; pair = pair->next) {
        uint8_t length = 0;
        const int status = measureAttribute(*pair, length);
        if (status != 0) {
            return status;
        }
        sum += length;
    }
    *total = sum;
    return 0;
}

// Packs one attribute at `place` and tells how much of `room` it took.
int packAt(uint8_t *place, size_t room, const RadPair &pair, const char *secret, Packet packet,
           size_t &taken) {
    RadPacket &record = packet.record();
    place[0] = static_cast<uint8_t>(pair.attrNum);
    place[1] = 0;
    const RadPackHook hook = packHook();
    int status = hook ? hook(place + kAttributeHeaderSize, place + 1, &pair, secret, &record) : 1;
    // A hook may write to the packet; with a longer length the signature would read past its end.
    if (hook && lengthField(record) > packet.bytes().size()) {
        setLengthField(record, packet.bytes().size());
    }
    if (status == 1) {
        status = encode(place + kAttributeHeaderSize, place[1], room, pair, secret, &record);
    }
    taken = place[1];
    return status == 0 && taken > room ? -1 : status;
}

// The room may end right behind the last attribute. A pair that comes then may still add nothing: it
// is packed aside.
int packAttribute(std::span<uint8_t> room, const RadPair &pair, const char *secret, Packet packet,
                  size_t &taken) {
    if (room.size() >= kAttributeHeaderSize) {
        return packAt(room.data(), room.size(), pair, secret, packet, taken);
    }
    std::array<uint8_t, kAttributeHeaderSize + kAttributeMax> aside{};
    return packAt(aside.data(), room.size(), pair, secret, packet, taken);
}

int pack(const RadPair *pairs, Packet packet, const char *secret) {
    auto room = packet.attributes();
    for (const RadPair *pair = pairs; pair; pair = pair->next) {
        radLogAs("radPackList", kLogTrace, "Packing attribute: %s\n", pair->name);
        size_t taken = 0;
        const int status = packAttribute(room, *pair, secret, packet, taken);
        if (status != 0) {
            return status;
        }
        room = room.subspan(taken);
    }
    return 0;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radPairEncode(uint8_t *value, uint8_t *length, const RadPair *pair, const char *secret,
                  RadPacket *request) {
    if (!length || !pair) {
        return -1;
    }
    return encode(value, *length, kAttributeMax, *pair, secret, request);
}

int radPackList(const RadPair *pairs, int mode, void *out, ...) {
    if (!pairs || !out) {
        return -1;
    }
    if (mode == RAD_PACK_MEASURE) {
        return measure(pairs, static_cast<uint32_t *>(out));
    }
    if (mode != RAD_PACK) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, out);
    const char *secret = va_arg(arguments, const char *);
    va_end(arguments);
    const auto packet = Packet::ofCaller(static_cast<RadPacket *>(out));
    return secret && packet ? pack(pairs, *packet, secret) : -1;
}
