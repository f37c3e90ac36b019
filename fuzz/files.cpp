#include "fuzz/files.h"

#include <cerrno>
#include <cstdio>

#include <palcore.h>

namespace lanyard::fuzz {

Bytes fileContent;

}  // namespace lanyard::fuzz

using lanyard::fuzz::fileContent;

FILE *palFileOpen(const char * /*path*/, const char * /*mode*/) {
    if (fileContent.empty()) {
        errno = ENOENT;
        return nullptr;
    }
    return fmemopen(fileContent.data(), fileContent.size(), "r");
}
