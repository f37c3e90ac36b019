// Keys and certificates for EAP methods that use TLS, made anew whenever they are needed.
#ifndef LANYARD_TESTS_INTEROP_CERTIFICATES_H
#define LANYARD_TESTS_INTEROP_CERTIFICATES_H

#include <filesystem>

namespace lanyard::test {

// Makes RSA keys of 2048 bits and certificates for a day, as PEM files "NAME.pem" and "NAME.key":
//
//   ca                       certificate of an authority
//   server                   of the RADIUS server, signed by it
//   client                   of a supplicant, signed by it
//   stranger                 of a supplicant, signed by another authority
//
// Throws std::runtime_error.
void writeCertificates(const std::filesystem::path &folder);

}  // namespace lanyard::test

#endif
