// What the library makes of a configuration file, line by line.
#ifndef LANYARDCTL_CHECK_H
#define LANYARDCTL_CHECK_H

#include <string>

#include "finding_list.h"

namespace lanyardctl {

// Every line goes through the library's own functions, so that the two never differ. Throws a Failure when
// the file cannot be read.
FileFindings checkConfiguration(const std::string &file);

// The same for a dictionary file.
FileFindings checkDictionary(const std::string &file);

}  // namespace lanyardctl

#endif
