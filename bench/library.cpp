#include "library.h"

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

Library::Library() {
    radLibInit(nullptr);
    radDictLoad(nullptr);
}

Library::~Library() {
    radLibExit();
}
