// Files that are made up: whatever the OS layer is asked to open has the same content, and is not there when
// that is empty. No file of the machine is read.
#ifndef LANYARD_FUZZ_FILES_H
#define LANYARD_FUZZ_FILES_H

#include "fuzz/environment.h"

namespace lanyard::fuzz {

extern Bytes fileContent;

}  // namespace lanyard::fuzz

#endif
