// A pair list, packed tight: the numbers of each pair, the lengths of its two texts, the texts.
#include "client/pair_copy.h"

#include <algorithm>
#include <cstring>
#include <span>

#include <lanyard/radius/dict.h>

#include "base/wire.h"

namespace lanyard {
namespace {

constexpr size_t kHeadSize = 3 * sizeof(uint32_t) + 2;

template <size_t size>
std::span<const uint8_t> textOf(const char (&text)[size], size_t length) {
    return {reinterpret_cast<const uint8_t *>(text), length};
}

std::span<const uint8_t> nameOf(const RadPair &pair) {
    return textOf(pair.name, strnlen(pair.name, RAD_NAME_MAX));
}

// A number has no text; a text that was cut records a length beyond its bytes; of a type that is the
// program's own only its hook knows.
std::span<const uint8_t> valueOf(const RadPair &pair) {
    switch (pair.type) {
        case RAD_TYPE_INTEGER:
        case RAD_TYPE_IPADDR:
        case RAD_TYPE_DATE:
            return {};
        case RAD_TYPE_STRING:
            return textOf(pair.strValue, std::min<size_t>(pair.numValue, RAD_VALUE_MAX));
        default:
            return textOf(pair.strValue, RAD_VALUE_MAX);
    }
}

template <size_t size>
void readText(ByteReader &reader, size_t length, char (&text)[size]) {
    const auto bytes = reader.take(length);
    std::copy(bytes.begin(), bytes.end(), text);
}

}  // namespace

bool PairCopy::assign(const RadPair *list) {
    size_ = 0;
    for (const RadPair *pair = list; pair; pair = pair->next) {
        size_ += kHeadSize + nameOf(*pair).size() + valueOf(*pair).size();
    }
    bytes_ = allocateSecret(size_);
    if (!bytes_) {
        return false;
    }
    ByteWriter writer({bytes_.get(), size_});
    for (const RadPair *pair = list; pair; pair = pair->next) {
        const auto name = nameOf(*pair);
        const auto value = valueOf(*pair);
        writer.u32(static_cast<uint32_t>(pair->attrNum));
        writer.u32(static_cast<uint32_t>(pair->type));
        writer.u32(pair->numValue);
        writer.u8(static_cast<uint8_t>(name.size()));
        writer.u8(static_cast<uint8_t>(value.size()));
        writer.bytes(name);
        writer.bytes(value);
    }
    return true;
}

bool PairCopy::appendTo(PairList &list) const {
    ByteReader reader({bytes_.get(), size_});
    while (reader.left() > 0) {
        auto pair = allocateRecord<RadPair>();
        if (!pair) {
            return false;
        }
        pair->attrNum = static_cast<int32_t>(reader.u32());
        pair->type = static_cast<int32_t>(reader.u32());
        pair->numValue = reader.u32();
        const size_t nameLength = reader.u8();
        const size_t valueLength = reader.u8();
        readText(reader, nameLength, pair->name);
        readText(reader, valueLength, pair->strValue);
        if (!list.append(pair.release())) {
            return false;
        }
    }
    return true;
}

}  // namespace lanyard
