// A file in the pieces in which the library reads it.
#ifndef LANYARDCTL_LIBRARY_LINES_H
#define LANYARDCTL_LIBRARY_LINES_H

#include <functional>
#include <string>

#include "finding_list.h"

namespace lanyardctl {

inline constexpr int kConfigurationBuffer = 512;
inline constexpr int kDictionaryBuffer = 256;

// Reads a file with a buffer of that many bytes and calls `look` for each line that the library does not
// skip: with the finding to fill, and the text as the library takes it, without its last character. What
// is wrong with the ends of lines is noted already. Throws a Failure when the file cannot be read.
void forEachLine(FileFindings &findings, int bufferSize,
                 const std::function<void(LineFinding &finding, const std::string &text)> &look);

}  // namespace lanyardctl

#endif
