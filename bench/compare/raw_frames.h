// EAPOL frames as a supplicant sends and gets them, by hand.
#ifndef LANYARD_BENCH_COMPARE_RAW_FRAMES_H
#define LANYARD_BENCH_COMPARE_RAW_FRAMES_H

#include <cstdint>
#include <vector>

#include "tests/e2e/virtual_wire.h"
#include "tools/file_descriptor.h"
#include "tools/pnac_wired/eapol.h"

namespace lanyard::bench {

enum class Frames { kSend, kSendAndReceive };

// A socket on the supplicants' end of the wire that never waits. It gets frames to all addresses.
FileDescriptor rawSocket(const test::VirtualWire &wire, Frames frames);

// A frame to the PAE group.
std::vector<uint8_t> supplicantFrame(const pnac::Mac &source, pnac::EapolType type,
                                     pnac::ByteView body = {});

// The EAP packet of a frame to that address; empty for another frame.
std::vector<uint8_t> eapOf(pnac::ByteView frame, const pnac::Mac &destination);

}  // namespace lanyard::bench

#endif
