#include "library.h"

#include <stdexcept>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>

Library::Library(uint32_t partition) {
    radMemInit(partition);
    radLibInit(nullptr);
    radDictLoad(nullptr);
}

Library::~Library() {
    radLibExit();
}

void Library::useServer(const std::string &host, uint16_t port, const std::string &secret) const {
    constexpr int kTimeoutSeconds = 5;
    constexpr int kRetries = 1;
    radConfSetTimeout("5");
    radConfSetRetries("1");
    if (radConfAddAuthServ(host.c_str(), port, kTimeoutSeconds, kRetries, secret.c_str(),
                           nullptr) != 0) {
        throw std::runtime_error("the library does not take the server");
    }
}
