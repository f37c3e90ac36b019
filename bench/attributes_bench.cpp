// Building, packing and decoding attributes.
#include <array>
#include <benchmark/benchmark.h>
#include <string>
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

// Lists and packets by their number of attributes. Bytes a second are those of the packet: 16 texts of
// 251 bytes, and 679 numbers, fill it.
constexpr uint32_t kLargePartition = 1024 * 1024;

using AddPair = void (*)(RadPair **list);

void addText(RadPair **list) {
    static const std::string text(251, 'x');
    radPairAdd(list, RAD_ATTR_REPLY_MESSAGE, text.data(), static_cast<int>(text.size()));
}

void addNumber(RadPair **list) {
    const uint32_t seconds = 86400;
    radPairAdd(list, RAD_ATTR_SESSION_TIMEOUT, &seconds, 0);
}

// A request or reply of some attributes of one kind, as a list and as a packet.
class Attributes {
  public:
    Attributes(AddPair add, int64_t count) {
        for (int64_t i = 0; i < count; ++i) {
            add(&list_);
        }
        uint32_t length = 0;
        radPackList(list_, RAD_PACK_MEASURE, &length);
        octets_.resize(RAD_HEADER_SIZE + length);
        octets_[0] = RAD_CODE_ACCESS_ACCEPT;
        octets_[2] = static_cast<uint8_t>(octets_.size() >> 8);
        octets_[3] = static_cast<uint8_t>(octets_.size());
    }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;
    ~Attributes() { radPairListFree(list_); }

    RadPair *list() const { return list_; }
    RadPacket *packet() { return reinterpret_cast<RadPacket *>(octets_.data()); }
    int64_t size() const { return static_cast<int64_t>(octets_.size()); }

  private:
    RadPair *list_ = nullptr;
    std::vector<uint8_t> octets_;
};

void pack(benchmark::State &state, AddPair add) {
    const Library library(kLargePartition);
    Attributes attributes(add, state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        uint32_t length = 0;
        if (radPackList(attributes.list(), RAD_PACK_MEASURE, &length) != 0 ||
            radPackList(attributes.list(), RAD_PACK, attributes.packet(), kSecret) != 0) {
            state.SkipWithError("the request does not pack");
            break;
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * attributes.size());
}
BENCHMARK_CAPTURE(pack, texts, addText)->RangeMultiplier(4)->Range(1, 16);
BENCHMARK_CAPTURE(pack, numbers, addNumber)->RangeMultiplier(4)->Range(10, 640)->Arg(679);

void decode(benchmark::State &state, AddPair add) {
    const Library library(kLargePartition);
    Attributes attributes(add, state.range(0));
    if (radPackList(attributes.list(), RAD_PACK, attributes.packet(), kSecret) != 0) {
        state.SkipWithError("the reply does not pack");
    }
    for ([[maybe_unused]] auto _ : state) {
        RadPair *list = nullptr;
        if (radPairGen(attributes.packet(), &list) != 0) {
            state.SkipWithError("the reply does not decode");
            break;
        }
        radPairListFree(list);
    }
    state.SetBytesProcessed(state.iterations() * attributes.size());
}
BENCHMARK_CAPTURE(decode, texts, addText)->RangeMultiplier(4)->Range(1, 16);
BENCHMARK_CAPTURE(decode, numbers, addNumber)->RangeMultiplier(4)->Range(10, 640)->Arg(679);

}  // namespace
