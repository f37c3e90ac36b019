// The option that names a login method.
#ifndef LANYARDCTL_METHOD_OPTION_H
#define LANYARDCTL_METHOD_OPTION_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "command.h"
#include "login.h"

namespace lanyardctl {

// -m METHOD, one of kMethods.
inline void addMethod(CLI::App &command, std::string &method) {
    std::vector<std::string> names;
    names.reserve(kMethods.size());
    for (const MethodName &row : kMethods) {
        names.emplace_back(row.name);
    }
    addText(command, "-m,--method", method, "METHOD",
            "pap, chap, mschap or mschapv2; pap without it")
        .check(CLI::IsMember(names).description(""));
}

}  // namespace lanyardctl

#endif
