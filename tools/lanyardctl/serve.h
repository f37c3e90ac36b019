// The commands `db serve` and `db replay`.
#ifndef LANYARDCTL_SERVE_H
#define LANYARDCTL_SERVE_H

#include <string>

#include "report.h"

namespace lanyardctl {

// Runs the change service until SIGTERM or SIGINT.
void serve(const std::string &file, Report &report);

// Has the service give all servers to a relay, whatever that holds; takes its place where none runs.
void replay(const std::string &file, const Report &report);

}  // namespace lanyardctl

#endif
