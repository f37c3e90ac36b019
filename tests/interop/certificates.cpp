#include "tests/interop/certificates.h"

#include <cstdio>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <string>

namespace lanyard::test {
namespace {

constexpr unsigned kKeyBits = 2048;
constexpr long kHour = 3600;
constexpr long kVersion3 = 2;

template <auto kFree>
struct Freed {
    template <typename T>
    void operator()(T *object) const {
        kFree(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using File = std::unique_ptr<std::FILE, Freed<std::fclose>>;

void require(bool done, const std::string &what) {
    if (!done) {
        throw std::runtime_error("cannot make certificates: " + what);
    }
}

// A key and the certificate for it.
struct Holder {
    Key key = {};
    Certificate certificate = {};
};

void extend(X509 *certificate, int extension, const char *value) {
    const Extension made(X509V3_EXT_conf_nid(nullptr, nullptr, extension, value));
    require(made && X509_add_ext(certificate, made.get(), -1) == 1, value);
}

// Makes a key and has it certified by an authority, or by itself.
Holder certify(const char *name, long serial, const Holder *authority) {
    Holder made{.key = Key(EVP_RSA_gen(kKeyBits)), .certificate = Certificate(X509_new())};
    X509 *certificate = made.certificate.get();
    require(made.key && certificate, "memory or random numbers");
    require(X509_set_version(certificate, kVersion3) == 1 &&
                ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(certificate), -kHour) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(certificate), 24 * kHour) != nullptr &&
                X509_set_pubkey(certificate, made.key.get()) == 1,
            name);
    X509_NAME *subject = X509_get_subject_name(certificate);
    require(
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char *>(name), -1, -1, 0) == 1,
        name);
    const Holder &issuer = authority != nullptr ? *authority : made;
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer.certificate.get())) == 1,
            name);
    extend(certificate, NID_basic_constraints,
           authority != nullptr ? "critical,CA:FALSE" : "critical,CA:TRUE");
    if (authority != nullptr) {
        extend(certificate, NID_ext_key_usage, "serverAuth,clientAuth");
    }
    require(X509_sign(certificate, issuer.key.get(), EVP_sha256()) > 0, name);
    return made;
}

File create(const std::filesystem::path &path) {
    File file(std::fopen(path.c_str(), "wxe"));
    require(file != nullptr, path.string());
    return file;
}

void writeCertificate(const std::filesystem::path &path, const Holder &holder) {
    require(PEM_write_X509(create(path).get(), holder.certificate.get()) == 1, path.string());
}

void writeBoth(const std::filesystem::path &folder, const std::string &name, const Holder &holder) {
    writeCertificate(folder / (name + ".pem"), holder);
    require(PEM_write_PrivateKey(create(folder / (name + ".key")).get(), holder.key.get(), nullptr,
                                 nullptr, 0, nullptr, nullptr) == 1,
            name);
}

}  // namespace

void writeCertificates(const std::filesystem::path &folder) {
    const Holder authority = certify("Lanyard test authority", 1, nullptr);
    const Holder other = certify("Somebody else's authority", 1, nullptr);
    writeCertificate(folder / "ca.pem", authority);
    writeBoth(folder, "server", certify("radius.example", 2, &authority));
    writeBoth(folder, "client", certify("alice", 3, &authority));
    writeBoth(folder, "stranger", certify("alice", 3, &other));
}

}  // namespace lanyard::test
