// Looking attributes up, as the request path does for every attribute of every packet.
#include <benchmark/benchmark.h>
#include <string>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "library.h"

namespace {

// All numbers of the type octet in turn, known and unknown.
void lookUpEveryNumber(benchmark::State &state) {
    int32_t number = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(radDictGetAttr(number));
        number = (number + 1) & 0xFF;
    }
}

void dictGetAttrBuiltin(benchmark::State &state) {
    const Library library;
    lookUpEveryNumber(state);
}
BENCHMARK(dictGetAttrBuiltin);

// As many attributes as numbers, and a named value for each number of ten attributes. The partition
// is large enough for all of them.
class LargeDictionary {
  public:
    explicit LargeDictionary(int64_t entries) {
        radMemInit(16 * 1024 * 1024);
        for (int64_t number = 0; number < entries; ++number) {
            const std::string text = std::to_string(number);
            radDictAddAttr(("Attribute-" + text + ' ' + text + " string").c_str());
            radDictAddValue(("Attribute-" + std::to_string(number % 10) + " Value-" + text + ' ' +
                             std::to_string(number / 10))
                                .c_str());
        }
    }
    LargeDictionary(const LargeDictionary &) = delete;
    LargeDictionary &operator=(const LargeDictionary &) = delete;
    ~LargeDictionary() {
        radDictUnload();
        radMemCleanUp();
    }
};

void dictGetAttr(benchmark::State &state) {
    const LargeDictionary dictionary(state.range(0));
    lookUpEveryNumber(state);
}
BENCHMARK(dictGetAttr)->RangeMultiplier(10)->Range(100, 100'000);

// Numbers that no packet can carry are walked for.
void dictGetAttrBeyondOctet(benchmark::State &state) {
    const LargeDictionary dictionary(state.range(0));
    const auto middle = static_cast<int32_t>(state.range(0) / 2);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(radDictGetAttr(middle));
    }
}
BENCHMARK(dictGetAttrBeyondOctet)->Arg(1000);

void dictGetVal(benchmark::State &state) {
    const LargeDictionary dictionary(state.range(0));
    int32_t number = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(radDictGetVal(number, "Attribute-7"));
        number = number < 9 ? number + 1 : 0;
    }
}
BENCHMARK(dictGetVal)->RangeMultiplier(10)->Range(100, 100'000);

void dictLoadBuiltin(benchmark::State &state) {
    const Library library;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(radDictLoad(nullptr));
    }
}
BENCHMARK(dictLoadBuiltin);

}  // namespace
