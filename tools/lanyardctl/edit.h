// The commands that edit and show the servers.
#ifndef LANYARDCTL_EDIT_H
#define LANYARDCTL_EDIT_H

#include <optional>
#include <string>

#include "database.h"
#include "report.h"
#include "servers.h"

namespace lanyardctl {

// What was asked for cannot be stored.
class Refusal : public Failure {
  public:
    using Failure::Failure;
};

// The server that was named is not there.
class NotFound : public Failure {
  public:
    using Failure::Failure;
};

inline constexpr const char *kDefaultPort = "1812";
inline constexpr const char *kDefaultTimeout = "10";
inline constexpr const char *kDefaultRetries = "3";

// Of the fields those that are given count: the others are left as they are, or get their defaults.
void addServer(const Database &db, const Server &fields, const Report &report);

// `name` is a host, or a row id.
void changeServer(const Database &db, const std::string &name, const Server &fields,
                  const Report &report);
void removeServer(const Database &db, const std::string &name, const Report &report);

void listServers(const Database &db, bool withSecrets, const Report &report);

// The secret in a file, or on standard input for "-": the whole text but for a newline at its end.
std::string readSecret(const std::string &file);

}  // namespace lanyardctl

#endif
