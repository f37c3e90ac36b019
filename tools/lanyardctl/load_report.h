// What a load has shown, for people and for programs.
#ifndef LANYARDCTL_LOAD_REPORT_H
#define LANYARDCTL_LOAD_REPORT_H

#include <string>
#include <vector>

#include <lanyard/radius/status.h>

#include "failure.h"
#include "load.h"
#include "report.h"

namespace lanyardctl {

// `servers`: what the library knows of those that were asked.
Json asDocument(const LoadPlan &plan, const LoadFigures &figures,
                const std::vector<RadServerStatus> &servers);
std::string asText(const LoadPlan &plan, const LoadFigures &figures,
                   const std::vector<RadServerStatus> &servers);

// One line of a load that is under way.
std::string progressOf(const LoadPlan &plan, const LoadFigures &figures);

// By what became of the logins, whether the load was ended early or not; kFailed when nothing became of any.
ExitCode exitCodeOf(const LoadFigures &figures);

}  // namespace lanyardctl

#endif
