// What a check finds, line by line, and how it is told.
#ifndef LANYARDCTL_FINDING_LIST_H
#define LANYARDCTL_FINDING_LIST_H

#include <string>
#include <vector>

#include "failure.h"
#include "report.h"

namespace lanyardctl {

// One line of a file: what the library makes of it, and what a person should know. No secrets.
struct LineFinding {
    int number = 0;        // 0 for the file itself
    bool isRest = false;   // of the line above, which is too long
    bool isWrong = false;  // the library refuses it
    std::vector<std::string> meanings = {};
    std::vector<std::string> problems = {};

    void refuse(const std::string &reason) {
        isWrong = true;
        problems.push_back(reason);
    }
    void doubt(const std::string &reason) { problems.push_back(reason); }
};

struct FileFindings {
    std::string file;
    bool isAccepted = false;  // by the library
    std::vector<LineFinding> lines = {};
};

// Reports them. Returns kDone for a file without a problem, else kNo.
ExitCode tell(const FileFindings &findings, const Report &report);

}  // namespace lanyardctl

#endif
