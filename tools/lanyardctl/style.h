// Colour, for people at a terminal.
#ifndef LANYARDCTL_STYLE_H
#define LANYARDCTL_STYLE_H

#include <string>

namespace lanyardctl {

enum class Tone { kGood, kDoubtful, kBad };

// The text, coloured where standard output is a terminal that may show it (NO_COLOR is not set).
std::string toned(Tone tone, const std::string &text);

}  // namespace lanyardctl

#endif
