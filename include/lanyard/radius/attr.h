/**
 * @file
 * Attributes: pair lists, decoding of received packets, display, vendor-specific attributes and the
 * default checks on a reply (RFC 2865 section 5, RFC 2548, RFC 3579 section 3.2).
 *
 * A list belongs to one thread at a time; different threads may work on different lists.
 */
#ifndef LANYARD_RADIUS_ATTR_H
#define LANYARD_RADIUS_ATTR_H

#include <stdint.h>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Most octets in the value of one attribute. */
#define RAD_VALUE_MAX 253

/** Microsoft's vendor id (RFC 2548). */
#define RAD_VENDOR_MICROSOFT 311

/** Numbers of the attributes that the library itself deals with. */
enum {
    RAD_ATTR_USER_NAME = 1,
    RAD_ATTR_USER_PASSWORD = 2,
    RAD_ATTR_CHAP_PASSWORD = 3,
    RAD_ATTR_NAS_IP_ADDRESS = 4,
    RAD_ATTR_SERVICE_TYPE = 6,
    RAD_ATTR_FRAMED_MTU = 12,
    RAD_ATTR_REPLY_MESSAGE = 18,
    RAD_ATTR_STATE = 24,
    RAD_ATTR_VENDOR_SPECIFIC = 26,
    RAD_ATTR_SESSION_TIMEOUT = 27,
    RAD_ATTR_IDLE_TIMEOUT = 28,
    RAD_ATTR_TERMINATION_ACTION = 29,
    RAD_ATTR_NAS_IDENTIFIER = 32,
    RAD_ATTR_ACCT_STATUS_TYPE = 40,
    RAD_ATTR_CHAP_CHALLENGE = 60,
    RAD_ATTR_EAP_MESSAGE = 79,
    RAD_ATTR_MESSAGE_AUTHENTICATOR = 80
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
 * One attribute of a request or a reply; a list is named by its first pair, the empty list by NULL.
 *
 * A pair is in one list at most: outside any list its `next` is NULL.
 */
typedef struct RadPair {
    char name[RAD_NAME_MAX + 1]; /**< attribute name, from the dictionary */
    int32_t attrNum;             /**< attribute number */
    int32_t type;                /**< one of the RAD_TYPE_ values of dict.h */
    uint32_t numValue;           /**< types 1 to 3: the value in host order; type 0: its length */
    char strValue[RAD_VALUE_MAX + 1]; /**< type 0: the value octets and a NUL */
    struct RadPair *next;
} RadPair;

/**
 * A RADIUS packet as it stands on the wire (RFC 2865 section 3). The attributes follow the header;
 * the record has no alignment and no padding, so it lies over any octets.
 */
typedef struct RadPacket {
    uint8_t code;
    uint8_t identifier;
    uint8_t length[2]; /**< octets of the whole packet, most significant first */
    uint8_t authenticator[16];
} RadPacket;

/**
 * Makes a pair that is in no list.
 *
 * @param attrNum  attribute number; the dictionary must know it.
 * @param value    as for radPairAssign().
 * @param len      as for radPairAssign().
 * @return the pair, which the caller frees with radPairListFree(); NULL for an unknown number or a
 *         bad value (logged at level 8) or when memory is exhausted (level 4).
 */
LANYARD_API RadPair *radPairNew(int attrNum, const void *value, int len);

/**
 * Sets the value of a pair according to its type.
 *
 * @param pair   the pair.
 * @param value  types 1 to 3: a 32-bit number in host order, of any alignment, `len` is ignored;
 *               type 0: `len` octets, or NUL-terminated text when `len` is 0 or negative.
 * @param len    octets, 1 to 253; 0 for text of at most 253 characters; negative for text that is
 *               cut at 253 characters while its full length is recorded (such a pair cannot be
 *               sent). Text also sets the last byte of `strValue` to NUL.
 * @return 0; -1 with the reason logged at level 8, the pair unchanged.
 */
LANYARD_API int radPairAssign(RadPair *pair, const void *value, int len);

/**
 * Makes a pair with radPairNew() and appends it to a list.
 *
 * @param list  address of the list, which owns the new pair.
 * @return the pair, or NULL with the list unchanged.
 */
LANYARD_API RadPair *radPairAdd(RadPair **list, int attrNum, const void *value, int len);

/**
 * Appends a pair to a list.
 *
 * @param list   address of the list, which then owns the pair.
 * @param after  NULL; insertion behind a given pair is not offered.
 * @param pair   a pair that is in no list, so its `next` is NULL. The last pair of `list` itself is
 *               refused; the last pair of another list cannot be told from one that is in none.
 * @return 0; -1 with the list unchanged. In an empty list the pair becomes the head, whatever
 *         `after`.
 */
LANYARD_API int radPairInsert(RadPair **list, RadPair *after, RadPair *pair);

/**
 * @param list     where to start.
 * @param attrNum  attribute number.
 * @return the first pair of that number from `list` on, which stays the list's; NULL when there is
 *         none.
 */
LANYARD_API RadPair *radPairGet(RadPair *list, int attrNum);

/**
 * @param pair  a pair.
 * @return the pair behind it; NULL at the end.
 */
LANYARD_API RadPair *radPairNext(RadPair *pair);

/**
 * Takes a pair out of its list; it is the caller's then.
 *
 * @param list  address of the list.
 * @param pair  the pair.
 * @return 0; -1 when it is not in the list.
 */
LANYARD_API int radPairRemove(RadPair **list, RadPair *pair);

/**
 * Takes the first pair of a number out of the list and frees it.
 *
 * @param list     address of the list.
 * @param attrNum  attribute number.
 * @return 0; -1 when there is none.
 */
LANYARD_API int radPairDelete(RadPair **list, int attrNum);

/**
 * @param pair  a pair.
 * @return a copy that is in no list and is the caller's; NULL, without a log, when memory is
 *         exhausted.
 */
LANYARD_API RadPair *radPairDup(const RadPair *pair);

/**
 * @return where the value lies in the pair: the octets of type 0, the 32-bit number of types 1 to
 *         3; NULL for another type (logged at level 8).
 */
LANYARD_API void *radPairValue(RadPair *pair);

/** @return length of the value in octets, 4 for types 1 to 3; -1 for another type (logged at level
 * 8). */
LANYARD_API int radPairValueLen(const RadPair *pair);

/** Frees a pair and all pairs behind it. NULL does nothing. */
LANYARD_API void radPairListFree(RadPair *list);

/**
 * Decodes the attributes of a packet (RFC 2865 section 5).
 *
 * Attributes that the dictionary does not know are skipped with a warning (level 16). An empty
 * string attribute takes the text that follows it in the packet, up to a NUL.
 *
 * @param packet  a whole packet: as many octets as its length field says.
 * @param list    receives the list, in packet order, owned by the caller; NULL on failure.
 * @return 0; -1 with the reason logged at level 8 (4 when memory is exhausted).
 */
LANYARD_API int radPairGen(const RadPacket *packet, RadPair **list);

/**
 * Finds an attribute among the undecoded attributes of a packet. It reads the two header octets of
 * each attribute and no value: what it yields may run past the end of the area.
 *
 * @param attrs    the first attribute.
 * @param len      octets of the area.
 * @param attrNum  attribute number, which the dictionary need not know (those it does not know are
 *                 logged at level 16).
 * @return the type octet of the first match, inside `attrs`; NULL when there is none or an
 *         attribute before it is malformed (logged at level 8).
 */
LANYARD_API const uint8_t *radPairLocate(const uint8_t *attrs, int len, int attrNum);

/**
 * Shows a pair: string values on standard output (Reply-Message as text, others in hexadecimal),
 * numbers in the log at level 256, with the name of the value where the dictionary has one. An
 * attribute that the dictionary does not know is named at level 8 and not shown.
 *
 * @param pair  the pair.
 * @return 0; -1 for NULL.
 */
LANYARD_API int radPairShow(const RadPair *pair);

/**
 * Reads or writes the vendor id of a Vendor-Specific value (RFC 2865 section 5.26).
 *
 * @param buf  four octets.
 * @param id   0 to read, else the id to write.
 * @return the id; 0 for NULL.
 */
LANYARD_API uint32_t venID(uint8_t *buf, uint32_t id);

/**
 * Checks one received Vendor-Specific value and decrypts MS-MPPE-Send-Key and MS-MPPE-Recv-Key in
 * place (RFC 2548 sections 2.4.2 and 2.4.3): the key-length octet, the key and its padding then
 * stand where the salt began.
 *
 * @param value        the value.
 * @param len          its octets.
 * @param secret       shared secret.
 * @param requestAuth  16 octets: authenticator of the request that the reply answers.
 * @return 0 to accept, also a vendor other than Microsoft (logged at level 8); -1 to reject the
 *         reply: a length that is wrong is logged at level 8, a missing argument, a salt without
 *         its top bit and exhausted memory are not. A decrypted key is logged at level 256.
 */
LANYARD_API int radVendorMessage(uint8_t *value, int len, const char *secret,
                                 const uint8_t *requestAuth);

/**
 * Copies the data of a sub-attribute out of a Vendor-Specific pair.
 *
 * @param pair        a Vendor-Specific pair.
 * @param vendorId    vendor to look for.
 * @param vendorType  sub-attribute to look for; for a vendor other than Microsoft it is ignored and
 *                    everything behind the vendor id is copied.
 * @param data        receives the copy, which the caller frees with `palMemPartFree(radMemPartId,
 *                    ...)`. Microsoft: the vendor-length octet of the pair less 2 octets; others:
 *                    the length of the pair less 4.
 * @return 0; -1 when the pair holds something else or memory is exhausted, with `*data` NULL. A
 *         wrong length and another vendor are logged at level 8.
 */
LANYARD_API int radVendorAttrGet(const RadPair *pair, uint32_t vendorId, int vendorType,
                                 uint8_t **data);

/**
 * Writes a Microsoft Vendor-Specific value (RFC 2548 section 2).
 *
 * @param buf         receives `dataLen` + 6 octets; the caller provides the room.
 * @param vendorId    RAD_VENDOR_MICROSOFT. For another vendor the id and the data are written
 *                    without type and length, and the result is -1.
 * @param vendorType  sub-attribute.
 * @param data        its data.
 * @param dataLen     octets, at most 247 for a value that fits one attribute.
 * @return octets written; -1 for a missing argument, a negative length or another vendor (logged at
 *         level 8).
 */
LANYARD_API int radVendorMessagePack(uint8_t *buf, uint32_t vendorId, int vendorType,
                                     const uint8_t *data, int dataLen);

/**
 * The library's own processing of one pair of a reply: EAP-Message is accepted only beside a
 * Message-Authenticator, the Message-Authenticator is verified (RFC 3579 section 3.2),
 * Vendor-Specific goes through radVendorMessage().
 *
 * @param pair     the pair.
 * @param list     the whole reply list.
 * @param reply    the reply packet.
 * @param request  the request that it answers.
 * @param secret   shared secret.
 * @return 0 to go on, else the reply is rejected; the checks log their own reasons.
 */
LANYARD_API int radPairUnpackDefault(RadPair *pair, RadPair *list, RadPacket *reply,
                                     RadPacket *request, const char *secret);

#ifdef __cplusplus
}
#endif

#endif
