// What the attributes of vendors hold that RADIUS servers often send, and their names where the dictionary that is
// loaded has none: the built-in table names no vendor.
#ifndef LANYARDCTL_VENDORS_H
#define LANYARDCTL_VENDORS_H

#include <array>
#include <cstdint>

#include <lanyard/radius/attr.h>

namespace lanyardctl {

enum class Kind { kText, kBytes, kNumber, kAddress, kTextAfterIdentifier, kSecret };

struct Vendor {
    uint32_t id;
    const char *name;
};

struct VendorAttribute {
    uint32_t vendor;
    uint8_t number;
    const char *name;
    Kind kind;
    const char *unit = "";
};

inline constexpr uint32_t kCisco = 9;
inline constexpr uint32_t kMicrosoft = RAD_VENDOR_MICROSOFT;
inline constexpr uint32_t kWispr = 14122;

inline constexpr auto kVendors =
    std::to_array<Vendor>({{kCisco, "Cisco"}, {kMicrosoft, "Microsoft"}, {kWispr, "WISPr"}});

inline constexpr auto kVendorAttributes = std::to_array<VendorAttribute>({
    {kCisco, 1, "Cisco-AVPair", Kind::kText},
    {kCisco, 2, "Cisco-NAS-Port", Kind::kText},
    // RFC 2548
    {kMicrosoft, 1, "MS-CHAP-Response", Kind::kBytes},
    {kMicrosoft, 2, "MS-CHAP-Error", Kind::kTextAfterIdentifier},
    {kMicrosoft, 3, "MS-CHAP-CPW-1", Kind::kSecret},
    {kMicrosoft, 4, "MS-CHAP-CPW-2", Kind::kSecret},
    {kMicrosoft, 5, "MS-CHAP-LM-Enc-PW", Kind::kSecret},
    {kMicrosoft, 6, "MS-CHAP-NT-Enc-PW", Kind::kSecret},
    {kMicrosoft, 7, "MS-MPPE-Encryption-Policy", Kind::kNumber},
    {kMicrosoft, 8, "MS-MPPE-Encryption-Types", Kind::kNumber},
    {kMicrosoft, 10, "MS-CHAP-Domain", Kind::kTextAfterIdentifier},
    {kMicrosoft, 11, "MS-CHAP-Challenge", Kind::kBytes},
    {kMicrosoft, 12, "MS-CHAP-MPPE-Keys", Kind::kSecret},
    {kMicrosoft, 16, "MS-MPPE-Send-Key", Kind::kSecret},
    {kMicrosoft, 17, "MS-MPPE-Recv-Key", Kind::kSecret},
    {kMicrosoft, 25, "MS-CHAP2-Response", Kind::kBytes},
    {kMicrosoft, 26, "MS-CHAP2-Success", Kind::kTextAfterIdentifier},
    {kMicrosoft, 27, "MS-CHAP2-CPW", Kind::kSecret},
    {kMicrosoft, 28, "MS-Primary-DNS-Server", Kind::kAddress},
    {kMicrosoft, 29, "MS-Secondary-DNS-Server", Kind::kAddress},
    {kWispr, 1, "WISPr-Location-ID", Kind::kText},
    {kWispr, 2, "WISPr-Location-Name", Kind::kText},
    {kWispr, 3, "WISPr-Logoff-URL", Kind::kText},
    {kWispr, 4, "WISPr-Redirection-URL", Kind::kText},
    {kWispr, 5, "WISPr-Bandwidth-Min-Up", Kind::kNumber, "bit/s"},
    {kWispr, 6, "WISPr-Bandwidth-Min-Down", Kind::kNumber, "bit/s"},
    {kWispr, 7, "WISPr-Bandwidth-Max-Up", Kind::kNumber, "bit/s"},
    {kWispr, 8, "WISPr-Bandwidth-Max-Down", Kind::kNumber, "bit/s"},
    {kWispr, 9, "WISPr-Session-Terminate-Time", Kind::kText},
    {kWispr, 10, "WISPr-Session-Terminate-End-Of-Day", Kind::kText},
    {kWispr, 11, "WISPr-Billing-Class-Of-Service", Kind::kText},
});

}  // namespace lanyardctl

#endif
