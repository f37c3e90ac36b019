// How it stands with the relay and its servers.
#ifndef LANYARDCTL_STATUS_H
#define LANYARDCTL_STATUS_H

#include "report.h"

namespace lanyardctl {

// Asks the relay on the bus and reports what it says. Throws a Failure when there is none, when it does
// not answer or when nothing can be made of its answer.
void tellStatus(const Report &report);

}  // namespace lanyardctl

#endif
