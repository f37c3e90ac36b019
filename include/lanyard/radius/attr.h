/**
 * @file
 * Attributes: lists of them, decoding of received packets, display, vendor-specific attributes, and
 * the checks on a reply (RFC 2865 section 5, RFC 2548, RFC 3579 section 3.2).
 *
 *     RadPair *list = NULL;
 *     const uint32_t framed = 2;  // numbers in host order
 *     if (radPairAdd(&list, RAD_ATTR_USER_NAME, "alice", 0) == NULL ||
 *         radPairAdd(&list, RAD_ATTR_SERVICE_TYPE, &framed, 0) == NULL) {
 *         puts("unknown to the dictionary, or out of memory");
 *     }
 *     for (RadPair *pair = list; pair != NULL; pair = radPairNext(pair)) {
 *         printf("%s, %d bytes\n", pair->name, radPairValueLen(pair));
 *     }
 *     radPairListFree(list);
 *
 * The dictionary (dict.h) has to know an attribute before a pair can be made of it.
 *
 * Threads: a list belongs to one thread at a time. Different threads may work on different lists.
 */
#ifndef LANYARD_RADIUS_ATTR_H
#define LANYARD_RADIUS_ATTR_H

#include <stdint.h>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Most bytes in the value of one attribute. */
#define RAD_VALUE_MAX 253

/** Microsoft's vendor id (RFC 2548). */
#define RAD_VENDOR_MICROSOFT 311

/** Numbers of attributes, as in etc/radius.dict. One that the loaded dictionary lacks can be neither sent nor received. */
enum {
    RAD_ATTR_USER_NAME = 1,
    RAD_ATTR_USER_PASSWORD = 2,
    RAD_ATTR_CHAP_PASSWORD = 3,
    RAD_ATTR_NAS_IP_ADDRESS = 4,
    RAD_ATTR_NAS_PORT = 5,
    RAD_ATTR_SERVICE_TYPE = 6,
    RAD_ATTR_FRAMED_PROTOCOL = 7,
    RAD_ATTR_FRAMED_IP_ADDRESS = 8,
    RAD_ATTR_FRAMED_IP_NETMASK = 9,
    RAD_ATTR_FRAMED_ROUTING = 10,
    RAD_ATTR_FILTER_ID = 11,
    RAD_ATTR_FRAMED_MTU = 12,
    RAD_ATTR_FRAMED_COMPRESSION = 13,
    RAD_ATTR_LOGIN_IP_HOST = 14,
    RAD_ATTR_LOGIN_SERVICE = 15,
    RAD_ATTR_LOGIN_TCP_PORT = 16,
    RAD_ATTR_REPLY_MESSAGE = 18,
    RAD_ATTR_CALLBACK_NUMBER = 19,
    RAD_ATTR_CALLBACK_ID = 20,
    RAD_ATTR_FRAMED_ROUTE = 22,
    RAD_ATTR_FRAMED_IPX_NETWORK = 23,
    RAD_ATTR_STATE = 24,
    RAD_ATTR_CLASS = 25,
    RAD_ATTR_VENDOR_SPECIFIC = 26,
    RAD_ATTR_SESSION_TIMEOUT = 27,
    RAD_ATTR_IDLE_TIMEOUT = 28,
    RAD_ATTR_TERMINATION_ACTION = 29,
    RAD_ATTR_CALLED_STATION_ID = 30,
    RAD_ATTR_CALLING_STATION_ID = 31,
    RAD_ATTR_NAS_IDENTIFIER = 32,
    RAD_ATTR_PROXY_STATE = 33,
    RAD_ATTR_LOGIN_LAT_SERVICE = 34,
    RAD_ATTR_LOGIN_LAT_NODE = 35,
    RAD_ATTR_LOGIN_LAT_GROUP = 36,
    RAD_ATTR_FRAMED_APPLETALK_LINK = 37,
    RAD_ATTR_FRAMED_APPLETALK_NETWORK = 38,
    RAD_ATTR_FRAMED_APPLETALK_ZONE = 39,
    RAD_ATTR_ACCT_STATUS_TYPE = 40,
    RAD_ATTR_ACCT_DELAY_TIME = 41,
    RAD_ATTR_ACCT_INPUT_OCTETS = 42,
    RAD_ATTR_ACCT_OUTPUT_OCTETS = 43,
    RAD_ATTR_ACCT_SESSION_ID = 44,
    RAD_ATTR_ACCT_AUTHENTIC = 45,
    RAD_ATTR_ACCT_SESSION_TIME = 46,
    RAD_ATTR_ACCT_INPUT_PACKETS = 47,
    RAD_ATTR_ACCT_OUTPUT_PACKETS = 48,
    RAD_ATTR_ACCT_TERMINATE_CAUSE = 49,
    RAD_ATTR_ACCT_MULTI_SESSION_ID = 50,
    RAD_ATTR_ACCT_LINK_COUNT = 51,
    RAD_ATTR_ACCT_INPUT_GIGAWORDS = 52,
    RAD_ATTR_ACCT_OUTPUT_GIGAWORDS = 53,
    RAD_ATTR_EVENT_TIMESTAMP = 55,
    RAD_ATTR_EGRESS_VLANID = 56,
    RAD_ATTR_INGRESS_FILTERS = 57,
    RAD_ATTR_EGRESS_VLAN_NAME = 58,
    RAD_ATTR_USER_PRIORITY_TABLE = 59,
    RAD_ATTR_CHAP_CHALLENGE = 60,
    RAD_ATTR_NAS_PORT_TYPE = 61,
    RAD_ATTR_PORT_LIMIT = 62,
    RAD_ATTR_LOGIN_LAT_PORT = 63,
    RAD_ATTR_TUNNEL_TYPE = 64,
    RAD_ATTR_TUNNEL_MEDIUM_TYPE = 65,
    RAD_ATTR_TUNNEL_CLIENT_ENDPOINT = 66,
    RAD_ATTR_TUNNEL_SERVER_ENDPOINT = 67,
    RAD_ATTR_ACCT_TUNNEL_CONNECTION = 68,
    RAD_ATTR_TUNNEL_PASSWORD = 69,
    RAD_ATTR_ARAP_PASSWORD = 70,
    RAD_ATTR_ARAP_FEATURES = 71,
    RAD_ATTR_ARAP_ZONE_ACCESS = 72,
    RAD_ATTR_ARAP_SECURITY = 73,
    RAD_ATTR_ARAP_SECURITY_DATA = 74,
    RAD_ATTR_PASSWORD_RETRY = 75,
    RAD_ATTR_PROMPT = 76,
    RAD_ATTR_CONNECT_INFO = 77,
    RAD_ATTR_CONFIGURATION_TOKEN = 78,
    RAD_ATTR_EAP_MESSAGE = 79,
    RAD_ATTR_MESSAGE_AUTHENTICATOR = 80,
    RAD_ATTR_TUNNEL_PRIVATE_GROUP_ID = 81,
    RAD_ATTR_TUNNEL_ASSIGNMENT_ID = 82,
    RAD_ATTR_TUNNEL_PREFERENCE = 83,
    RAD_ATTR_ARAP_CHALLENGE_RESPONSE = 84,
    RAD_ATTR_ACCT_INTERIM_INTERVAL = 85,
    RAD_ATTR_ACCT_TUNNEL_PACKETS_LOST = 86,
    RAD_ATTR_NAS_PORT_ID = 87,
    RAD_ATTR_FRAMED_POOL = 88,
    RAD_ATTR_CHARGEABLE_USER_IDENTITY = 89,
    RAD_ATTR_TUNNEL_CLIENT_AUTH_ID = 90,
    RAD_ATTR_TUNNEL_SERVER_AUTH_ID = 91,
    RAD_ATTR_NAS_IPV6_ADDRESS = 95,
    RAD_ATTR_FRAMED_INTERFACE_ID = 96,
    RAD_ATTR_FRAMED_IPV6_PREFIX = 97,
    RAD_ATTR_LOGIN_IPV6_HOST = 98,
    RAD_ATTR_FRAMED_IPV6_ROUTE = 99,
    RAD_ATTR_FRAMED_IPV6_POOL = 100,
    RAD_ATTR_ERROR_CAUSE = 101,
    RAD_ATTR_EAP_KEY_NAME = 102,
    RAD_ATTR_DELEGATED_IPV6_PREFIX = 123,
    RAD_ATTR_OPERATOR_NAME = 126,
    RAD_ATTR_LOCATION_INFORMATION = 127,
    RAD_ATTR_LOCATION_DATA = 128,
    RAD_ATTR_BASIC_LOCATION_POLICY_RULES = 129,
    RAD_ATTR_EXTENDED_LOCATION_POLICY_RULES = 130,
    RAD_ATTR_LOCATION_CAPABLE = 131,
    RAD_ATTR_REQUESTED_LOCATION_INFO = 132,
    RAD_ATTR_FRAMED_IPV6_ADDRESS = 168,
    RAD_ATTR_DNS_SERVER_IPV6_ADDRESS = 169,
    RAD_ATTR_ROUTE_IPV6_INFORMATION = 170,
    RAD_ATTR_DELEGATED_IPV6_PREFIX_POOL = 171,
    RAD_ATTR_STATEFUL_IPV6_ADDRESS_POOL = 172,
    RAD_ATTR_ALLOWED_CALLED_STATION_ID = 174,
    RAD_ATTR_EAP_PEER_ID = 175,
    RAD_ATTR_EAP_SERVER_ID = 176,
    RAD_ATTR_MOBILITY_DOMAIN_ID = 177,
    RAD_ATTR_PREAUTH_TIMEOUT = 178,
    RAD_ATTR_NETWORK_ID_NAME = 179,
    RAD_ATTR_EAPOL_ANNOUNCEMENT = 180,
    RAD_ATTR_WLAN_HESSID = 181,
    RAD_ATTR_WLAN_VENUE_INFO = 182,
    RAD_ATTR_WLAN_VENUE_LANGUAGE = 183,
    RAD_ATTR_WLAN_VENUE_NAME = 184,
    RAD_ATTR_WLAN_REASON_CODE = 185,
    RAD_ATTR_WLAN_PAIRWISE_CIPHER = 186,
    RAD_ATTR_WLAN_GROUP_CIPHER = 187,
    RAD_ATTR_WLAN_AKM_SUITE = 188,
    RAD_ATTR_WLAN_GROUP_MGMT_CIPHER = 189,
    RAD_ATTR_WLAN_RF_BAND = 190
};

/** Microsoft sub-attributes that the library itself deals with (RFC 2548 section 2). */
enum {
    RAD_MS_CHAP_RESPONSE = 1,
    RAD_MS_CHAP_CHALLENGE = 11,
    RAD_MS_MPPE_SEND_KEY = 16,
    RAD_MS_MPPE_RECV_KEY = 17,
    RAD_MS_CHAP2_RESPONSE = 25
};

/**
 * One attribute of a request or a reply. A list is a pointer to its first pair, NULL when empty.
 *
 * A pair is in one list at most. In none, its `next` is NULL.
 */
typedef struct RadPair {
    char name[RAD_NAME_MAX + 1]; /**< attribute name, from the dictionary */
    int32_t attrNum;             /**< attribute number */
    int32_t type;                /**< one of the RAD_TYPE_ values of dict.h */
    uint32_t numValue;           /**< types 1 to 3: the value in host order; type 0: its length */
    char strValue[RAD_VALUE_MAX + 1]; /**< type 0: the value and a NUL */
    struct RadPair *next;             /**< the next pair of the list; NULL for the last */
} RadPair;

/**
 * Header of a RADIUS packet, as on the wire (RFC 2865 section 3); the attributes follow it. The
 * record has alignment 1 and no padding, so that a pointer to any bytes may be cast to it.
 */
typedef struct RadPacket {
    uint8_t code;              /**< one of the RAD_CODE_ values of engine.h */
    uint8_t identifier;        /**< the same in a request and its reply */
    uint8_t length[2];         /**< bytes of the whole packet, most significant byte first */
    uint8_t authenticator[16]; /**< proves a reply; random in an Access-Request */
} RadPacket;

/**
 * Makes a pair that is in no list.
 *
 * @param attrNum  attribute number, known to the dictionary.
 * @param value    the value, copied: see radPairAssign().
 * @param len      its bytes: see radPairAssign().
 * @return the pair, which the caller frees with radPairListFree(); NULL for an unknown number or a
 *         bad value (logged at level 8) or when memory is exhausted (level 4).
 */
LANYARD_API RadPair *radPairNew(int attrNum, const void *value, int len);

/**
 * Sets the value of a pair according to its type.
 *
 * @param pair   the pair.
 * @param value  copied. Types 1 to 3: a 32-bit number in host order, of any alignment; `len` is
 *               ignored. Type 0: `len` bytes, or text when `len` is 0 or negative.
 * @param len    bytes, 1 to 253; 0 for text of at most 253 characters. Negative for longer text: it
 *               is cut at 253 characters and its full length recorded, so that the pair cannot be
 *               sent. Text also sets the last byte of `strValue` to NUL.
 * @return 0; -1 with the reason logged at level 8 and the pair unchanged.
 */
LANYARD_API int radPairAssign(RadPair *pair, const void *value, int len);

/**
 * Makes a pair with radPairNew() and appends it to a list.
 *
 * @param list     address of the list, which then owns the pair.
 * @param attrNum  attribute number, known to the dictionary.
 * @param value    the value, copied: see radPairAssign().
 * @param len      its bytes: see radPairAssign().
 * @return the pair; NULL, with the list unchanged, for the reasons and with the log of
 *         radPairNew().
 */
LANYARD_API RadPair *radPairAdd(RadPair **list, int attrNum, const void *value, int len);

/**
 * Appends a pair to a list.
 *
 * @param list   address of the list, which then owns the pair.
 * @param after  NULL; ignored when the list is empty. Inserting in the middle is not offered.
 * @param pair   a pair that is in no list: its `next` is NULL. The last pair of `list` itself is
 *               refused; the last pair of another list is not noticed.
 * @return 0; -1 with the list unchanged.
 */
LANYARD_API int radPairInsert(RadPair **list, RadPair *after, RadPair *pair);

/**
 * Finds an attribute.
 *
 * @param list     the list, or a pair of it to search from.
 * @param attrNum  attribute number.
 * @return the first pair of that number, which stays the list's; NULL when there is none.
 */
LANYARD_API RadPair *radPairGet(RadPair *list, int attrNum);

/**
 * Returns the next pair of a list.
 *
 * @param pair  a pair.
 * @return the pair after it, which stays the list's; NULL at the end.
 */
LANYARD_API RadPair *radPairNext(RadPair *pair);

/**
 * Takes a pair out of its list.
 *
 * @param list  address of the list.
 * @param pair  the pair, which is then the caller's.
 * @return 0; -1 when it is not in the list.
 */
LANYARD_API int radPairRemove(RadPair **list, RadPair *pair);

/**
 * Takes the first pair of a number out of a list, wipes and frees it.
 *
 * @param list     address of the list.
 * @param attrNum  attribute number.
 * @return 0; -1 when there is none.
 */
LANYARD_API int radPairDelete(RadPair **list, int attrNum);

/**
 * Copies a pair.
 *
 * @param pair  a pair.
 * @return the copy, in no list, which the caller frees with radPairListFree(); NULL, without a log,
 *         when memory is exhausted.
 */
LANYARD_API RadPair *radPairDup(const RadPair *pair);

/**
 * Returns the value of a pair.
 *
 * @param pair  a pair.
 * @return a pointer into the pair: to the bytes of type 0, to the `uint32_t` of types 1 to 3; NULL
 *         for another type (logged at level 8).
 */
LANYARD_API void *radPairValue(RadPair *pair);

/**
 * Returns the length of a value.
 *
 * @param pair  a pair.
 * @return bytes of the value, 4 for types 1 to 3; -1 for another type (logged at level 8).
 */
LANYARD_API int radPairValueLen(const RadPair *pair);

/**
 * Wipes and frees a list.
 *
 * @param list  the list; every pair from here to the end is freed.
 */
LANYARD_API void radPairListFree(RadPair *list);

/**
 * Decodes the attributes of a packet (RFC 2865 section 5).
 *
 * Skips attributes that the dictionary does not know, with a warning (level 16). The value of an
 * empty string attribute is the text that follows it in the packet, up to a NUL.
 *
 * @param packet  a whole packet: as many bytes as its length field says.
 * @param list    receives the list, in packet order, owned by the caller; NULL on failure.
 * @return 0; -1 with the reason logged at level 8 (4 when memory is exhausted).
 */
LANYARD_API int radPairGen(const RadPacket *packet, RadPair **list);

/**
 * Finds an attribute among the undecoded attributes of a packet. It reads type and length of each
 * attribute and no value: the value of the one that it returns may end after the area.
 *
 * @param attrs    the first attribute.
 * @param len      bytes of the area.
 * @param attrNum  attribute number. The dictionary need not know it; attributes that it does not
 *                 know are logged at level 16.
 * @return the type of the first match, inside `attrs`; NULL when there is none or an attribute
 *         before it is malformed (logged at level 8).
 */
LANYARD_API const uint8_t *radPairLocate(const uint8_t *attrs, int len, int attrNum);

/**
 * Shows a pair. String values go to standard output, Reply-Message as text and others in
 * hexadecimal. Numbers go to the log at level 256, with the value's name if the dictionary has one.
 * An attribute that the dictionary does not know is named at level 8 and not shown.
 *
 * @param pair  the pair.
 * @return 0; -1 for NULL.
 */
LANYARD_API int radPairShow(const RadPair *pair);

/**
 * Reads or writes the vendor id of a Vendor-Specific value (RFC 2865 section 5.26).
 *
 * @param buf  four bytes.
 * @param id   0 to read, else the id to write.
 * @return the id; 0 for NULL.
 */
LANYARD_API uint32_t venID(uint8_t *buf, uint32_t id);

/**
 * Checks one received Vendor-Specific value and decrypts MS-MPPE-Send-Key and MS-MPPE-Recv-Key in
 * place (RFC 2548 sections 2.4.2 and 2.4.3): its length, one byte, the key and its padding then
 * start where the salt was. A decrypted key is logged at level 256.
 *
 * @param value        the value.
 * @param len          its bytes.
 * @param secret       shared secret.
 * @param requestAuth  16 bytes: authenticator of the request that the reply answers.
 * @return 0 to accept, also for a vendor other than Microsoft (logged at level 8); -1 to refuse the
 *         reply. A wrong length is logged at level 8; NULL, a salt without its top bit and
 *         exhausted memory are not.
 */
LANYARD_API int radVendorMessage(uint8_t *value, int len, const char *secret,
                                 const uint8_t *requestAuth);

/**
 * Copies the data of a sub-attribute out of a Vendor-Specific pair.
 *
 * @param pair        a Vendor-Specific pair.
 * @param vendorId    vendor to look for.
 * @param vendorType  sub-attribute to look for. For a vendor other than Microsoft it is ignored,
 *                    and all that follows the vendor id is copied.
 * @param data        receives the copy, which the caller frees with `palMemPartFree(radMemPartId,
 *                    ...)`. It has `pair->numValue` - 6 bytes for Microsoft, - 4 for others.
 * @return 0; -1, with `*data` NULL, when the pair holds something else or memory is exhausted. A
 *         wrong length and a vendor other than Microsoft are logged at level 8.
 */
LANYARD_API int radVendorAttrGet(const RadPair *pair, uint32_t vendorId, int vendorType,
                                 uint8_t **data);

/**
 * Writes a Microsoft Vendor-Specific value (RFC 2548 section 2).
 *
 * @param buf         receives the value; room for `dataLen` + 6 bytes.
 * @param vendorId    RAD_VENDOR_MICROSOFT. For another vendor id and data are written without type
 *                    and length, and the result is -1.
 * @param vendorType  sub-attribute.
 * @param data        its data.
 * @param dataLen     bytes; at most 247, so that the value fits one attribute.
 * @return bytes written; -1 for NULL, a negative length or another vendor (logged at level 8).
 */
LANYARD_API int radVendorMessagePack(uint8_t *buf, uint32_t vendorId, int vendorType,
                                     const uint8_t *data, int dataLen);

/**
 * Checks one attribute of a reply, as the library does where no unpack hook decides. EAP-Message
 * needs a Message-Authenticator beside it; Message-Authenticator is verified (RFC 3579 section
 * 3.2); Vendor-Specific goes through radVendorMessage(). Others are accepted.
 *
 * @param pair     the attribute; MS-MPPE keys are decrypted in place.
 * @param list     all attributes of the reply.
 * @param reply    the reply packet.
 * @param request  the request that it answers.
 * @param secret   shared secret.
 * @return 0 to accept; -1 to refuse the reply. The checks log their reasons.
 */
LANYARD_API int radPairUnpackDefault(RadPair *pair, RadPair *list, RadPacket *reply,
                                     RadPacket *request, const char *secret);

#ifdef __cplusplus
}
#endif

#endif
