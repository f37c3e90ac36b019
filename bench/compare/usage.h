// What programs use of the machine.
#ifndef LANYARD_BENCH_COMPARE_USAGE_H
#define LANYARD_BENCH_COMPARE_USAGE_H

#include <string>
#include <vector>

namespace lanyard::bench {

struct Usage {
    double cpuSeconds = 0;  // so far
    double mebibytes = 0;   // resident
};

// Of all processes of this namespace that have these names.
Usage usageOf(const std::vector<std::string> &programs);

}  // namespace lanyard::bench

#endif
