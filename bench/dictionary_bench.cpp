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

// A partition of its own: 1000 entries need more than the library's default.
class LargeDictionary {
  public:
    LargeDictionary() {
        radMemInit(1024 * 1024);
        for (int number = 0; number < 1000; ++number) {
            const std::string line =
                "Attribute-" + std::to_string(number) + " " + std::to_string(number) + " string";
            radDictAddAttr(line.c_str());
        }
    }
    LargeDictionary(const LargeDictionary &) = delete;
    LargeDictionary &operator=(const LargeDictionary &) = delete;
    ~LargeDictionary() {
        radDictUnload();
        radMemCleanUp();
    }
};

void dictGetAttr1000(benchmark::State &state) {
    const LargeDictionary dictionary;
    lookUpEveryNumber(state);
}
BENCHMARK(dictGetAttr1000);

// Numbers that no packet can carry are walked for.
void dictGetAttr1000BeyondOctet(benchmark::State &state) {
    const LargeDictionary dictionary;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(radDictGetAttr(500));
    }
}
BENCHMARK(dictGetAttr1000BeyondOctet);

}  // namespace
