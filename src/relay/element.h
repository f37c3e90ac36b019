// Elements of the blocks that accompany EAP packets on the bus: type, length of type, length and
// value, value. A block begins with its own length, two bytes.
#ifndef LANYARD_RELAY_ELEMENT_H
#define LANYARD_RELAY_ELEMENT_H

#include <cstddef>
#include <cstdint>

namespace lanyard {

constexpr uint16_t kBlockHeaderSize = 2;
constexpr uint16_t kElementHeaderSize = 2;
constexpr size_t kElementValueMax = 253;

}  // namespace lanyard

#endif
