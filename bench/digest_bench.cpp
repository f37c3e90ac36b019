// The digests that every request and reply pays for.
#include <array>
#include <benchmark/benchmark.h>
#include <vector>

#include <lanyard/radius/engine.h>

#include "library.h"

namespace {

constexpr const char *kSecret = "testing123";

void md5Crypt(benchmark::State &state) {
    const Library library;
    const auto length = static_cast<int>(state.range(0));
    const std::array<uint8_t, RAD_DIGEST_SIZE> authenticator{};
    const std::vector<uint8_t> input(static_cast<size_t>(length), 'p');
    std::vector<uint8_t> output(input.size());
    for ([[maybe_unused]] auto _ : state) {
        radMd5Crypt(kSecret, authenticator.data(), nullptr, 0, input.data(), length, output.data(),
                    0);
        benchmark::DoNotOptimize(output.data());
    }
}
BENCHMARK(md5Crypt)->Arg(16)->Arg(48)->Arg(240);

void hmacMd5(benchmark::State &state) {
    const std::vector<uint8_t> data(static_cast<size_t>(state.range(0)), 'd');
    std::array<uint8_t, RAD_DIGEST_SIZE> digest{};
    for ([[maybe_unused]] auto _ : state) {
        radHmacMd5Calc(digest.data(), data.data(), static_cast<uint32_t>(data.size()),
                       reinterpret_cast<const uint8_t *>(kSecret), 10);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(hmacMd5)->Arg(64)->Arg(1024)->Arg(RAD_PACKET_MAX);

}  // namespace
