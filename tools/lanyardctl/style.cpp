#include "style.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace lanyardctl {

namespace {

bool coloursWork() {
    const char *terminal = getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr && terminal &&
           std::string_view(terminal) != "dumb";
}

}  // namespace

std::string toned(Tone tone, const std::string &text) {
    static const bool coloured = coloursWork();
    constexpr std::array kColours = {"\033[32m", "\033[33m", "\033[31m"};
    return coloured ? kColours[static_cast<size_t>(tone)] + text + "\033[0m" : text;
}

}  // namespace lanyardctl
