#include "bench/compare/usage.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace lanyard::bench {

Usage usageOf(const std::vector<std::string> &programs) {
    constexpr int kBeforeUserTime = 11;  // fields after the name
    constexpr int kBeforeResident = 8;   // fields after the system time
    Usage usage;
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string line;
        std::getline(file, line);
        const size_t open = line.find('(');
        const size_t close = line.rfind(')');
        if (open == std::string::npos || close == std::string::npos ||
            std::find(programs.begin(), programs.end(), line.substr(open + 1, close - open - 1)) ==
                programs.end()) {
            continue;
        }
        std::istringstream fields(line.substr(close + 1));
        std::string skipped;
        double userTicks = 0;
        double systemTicks = 0;
        double pages = 0;
        for (int i = 0; i < kBeforeUserTime; ++i) {
            fields >> skipped;
        }
        fields >> userTicks >> systemTicks;
        for (int i = 0; i < kBeforeResident; ++i) {
            fields >> skipped;
        }
        fields >> pages;
        usage.cpuSeconds += (userTicks + systemTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
        usage.mebibytes += pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
    }
    return usage;
}

}  // namespace lanyard::bench
