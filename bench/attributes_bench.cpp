// Building, packing and decoding attributes.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "library.h"

namespace {

constexpr const char *kSecret = "testing123";

void pairAdd(benchmark::State &state) {
    const Library library;
    for ([[maybe_unused]] auto _ : state) {
        RadPair *list = nullptr;
        benchmark::DoNotOptimize(radPairAdd(&list, RAD_ATTR_USER_NAME, "alice", 0));
        radPairListFree(list);
    }
}
BENCHMARK(pairAdd);

// A PAP request as the exchange completes it: measured, packed, password hidden, message signed.
void packPapRequest(benchmark::State &state) {
    const Library library;
    const uint32_t authenticateOnly = 8;
    const uint32_t address = 0x7F000001;
    const std::array<uint8_t, RAD_DIGEST_SIZE> placeholder{};
    RadPair *list = nullptr;
    radPairAdd(&list, RAD_ATTR_USER_NAME, "alice", 0);
    radPairAdd(&list, RAD_ATTR_USER_PASSWORD, "wonderland", 0);
    radPairAdd(&list, RAD_ATTR_SERVICE_TYPE, &authenticateOnly, 0);
    radPairAdd(&list, RAD_ATTR_NAS_IP_ADDRESS, &address, 0);
    radPairAdd(&list, RAD_ATTR_MESSAGE_AUTHENTICATOR, placeholder.data(), placeholder.size());
    for ([[maybe_unused]] auto _ : state) {
        uint32_t length = 0;
        std::array<uint8_t, RAD_PACKET_MAX> octets{};
        auto *packet = reinterpret_cast<RadPacket *>(octets.data());
        if (radPackList(list, RAD_PACK_MEASURE, &length) != 0) {
            state.SkipWithError("the request does not measure");
            break;
        }
        length += RAD_HEADER_SIZE;
        packet->code = RAD_CODE_ACCESS_REQUEST;
        packet->length[0] = static_cast<uint8_t>(length >> 8);
        packet->length[1] = static_cast<uint8_t>(length);
        if (radPackList(list, RAD_PACK, packet, kSecret) != 0) {
            state.SkipWithError("the request does not pack");
            break;
        }
        benchmark::DoNotOptimize(octets);
    }
    radPairListFree(list);
}
BENCHMARK(packPapRequest);

// A reply of 4096 octets: Reply-Message of 251 octets sixteen times and one that fills up.
void pairGen4096(benchmark::State &state) {
    const Library library;
    std::vector<uint8_t> octets(RAD_PACKET_MAX, 'x');
    octets[0] = RAD_CODE_ACCESS_ACCEPT;
    octets[2] = RAD_PACKET_MAX >> 8;
    octets[3] = RAD_PACKET_MAX & 0xFF;
    for (size_t position = RAD_HEADER_SIZE; position < octets.size();) {
        const size_t length = std::min<size_t>(octets.size() - position, 253);
        octets[position] = RAD_ATTR_REPLY_MESSAGE;
        octets[position + 1] = static_cast<uint8_t>(length);
        position += length;
    }
    for ([[maybe_unused]] auto _ : state) {
        RadPair *list = nullptr;
        if (radPairGen(reinterpret_cast<const RadPacket *>(octets.data()), &list) != 0) {
            state.SkipWithError("the reply does not decode");
            break;
        }
        radPairListFree(list);
    }
    state.SetBytesProcessed(state.iterations() * RAD_PACKET_MAX);
}
BENCHMARK(pairGen4096);

}  // namespace
