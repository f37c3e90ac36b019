// The users of a load.
#ifndef LANYARDCTL_LOAD_USERS_H
#define LANYARDCTL_LOAD_USERS_H

#include <deque>
#include <string>
#include <utility>

#include "secret.h"

namespace lanyardctl {

struct LoadUser {
    LoadUser(std::string userName, std::string userPassword)
        : name(std::move(userName)), password(std::move(userPassword)) {}

    std::string name;
    Secret password;
};

// The users of a file: on each line a name, blanks or tabs, and the password, which is the rest of the line. Throws a
// Failure for a file that cannot be read, and for one with another line or without any.
std::deque<LoadUser> readLoadUsers(const std::string &file);

}  // namespace lanyardctl

#endif
