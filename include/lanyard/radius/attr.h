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

/** Numbers of the attributes that the library itself deals with. */
enum {
    RAD_ATTR_USER_NAME = 1,
    RAD_ATTR_USER_PASSWORD = 2,
    RAD_ATTR_CHAP_PASSWORD = 3,
    RAD_ATTR_NAS_IP_ADDRESS = 4,
    RAD_ATTR_NAS_PORT = 5,
    RAD_ATTR_SERVICE_TYPE = 6,
    RAD_ATTR_FRAMED_MTU = 12,
    RAD_ATTR_REPLY_MESSAGE = 18,
    RAD_ATTR_STATE = 24,
    RAD_ATTR_VENDOR_SPECIFIC = 26,
    RAD_ATTR_SESSION_TIMEOUT = 27,
    RAD_ATTR_IDLE_TIMEOUT = 28,
    RAD_ATTR_TERMINATION_ACTION = 29,
    RAD_ATTR_CALLED_STATION_ID = 30,
    RAD_ATTR_CALLING_STATION_ID = 31,
    RAD_ATTR_NAS_IDENTIFIER = 32,
    RAD_ATTR_ACCT_STATUS_TYPE = 40,
    RAD_ATTR_ACCT_DELAY_TIME = 41,
    RAD_ATTR_CHAP_CHALLENGE = 60,
    RAD_ATTR_NAS_PORT_TYPE = 61,
    RAD_ATTR_TUNNEL_TYPE = 64,
    RAD_ATTR_TUNNEL_MEDIUM_TYPE = 65,
    RAD_ATTR_EAP_MESSAGE = 79,
    RAD_ATTR_MESSAGE_AUTHENTICATOR = 80,
    RAD_ATTR_TUNNEL_PRIVATE_GROUP_ID = 81,
    RAD_ATTR_NAS_PORT_ID = 87
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
