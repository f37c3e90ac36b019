// The head of a bus record between the relay and Pnac. Both ends are processes of one machine, so its
// numbers are in host byte order.
#ifndef LANYARD_RELAY_RECORD_H
#define LANYARD_RELAY_RECORD_H

#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

#include <lanyard/radius/eap.h>

#include "base/wire.h"

namespace lanyard {

constexpr size_t kRecordHeadSize = sizeof(RadEapXbusMsg);

// No padding: every byte of a record is one of its numbers'.
static_assert(kRecordHeadSize == 3 * sizeof(uint32_t));
static_assert(std::is_trivially_copyable_v<RadEapXbusMsg>);

// All zero where the reader ends before it.
inline RadEapXbusMsg readRecordHead(ByteReader &reader) {
    RadEapXbusMsg head{};
    const auto bytes = reader.take(sizeof(head));
    if (!bytes.empty()) {
        std::memcpy(&head, bytes.data(), bytes.size());
    }
    return head;
}

inline void writeRecordHead(ByteWriter &writer, const RadEapXbusMsg &head) {
    const auto place = writer.claim(sizeof(head));
    if (!place.empty()) {
        std::memcpy(place.data(), &head, place.size());
    }
}

}  // namespace lanyard

#endif
