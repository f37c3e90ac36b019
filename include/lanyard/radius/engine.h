/**
 * @file
 * Requests of your own: server choice, transport, packing; digests; host names (RFC 2865, RFC 2866,
 * RFC 3579, RFC 2104).
 *
 *     RadPair *request = NULL;
 *     RadPair *reply = NULL;
 *     radPairAdd(&request, RAD_ATTR_USER_NAME, "alice", 0);
 *     radPairAdd(&request, RAD_ATTR_USER_PASSWORD, "wonderland", 0);
 *     if (radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request, &reply) == RAD_CODE_ACCESS_ACCEPT) {
 *         radPairShow(radPairGet(reply, RAD_ATTR_REPLY_MESSAGE));
 *     }
 *     radPairListFree(reply);
 *     radPairListFree(request);
 *
 * Threads: after configuration any number of threads may call all of this at once.
 *
 * Signals: a signal handler that runs in a thread that waits for a reply has the request sent again
 * and the wait begun anew, without counting it as a try. While handlers run more often than the
 * time-out lasts, the call does not return until something arrives. Block such signals around it
 * (pthread_sigmask(), see methods.h).
 */
#ifndef LANYARD_RADIUS_ENGINE_H
#define LANYARD_RADIUS_ENGINE_H

#include <netinet/in.h>
#include <stdint.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Packet codes (RFC 2865 section 3, RFC 2866 section 3). */
enum {
    RAD_CODE_ACCESS_REQUEST = 1,
    RAD_CODE_ACCESS_ACCEPT = 2,
    RAD_CODE_ACCESS_REJECT = 3,
    RAD_CODE_ACCOUNTING_REQUEST = 4,
    RAD_CODE_ACCOUNTING_RESPONSE = 5,
    RAD_CODE_ACCESS_CHALLENGE = 11,
    RAD_CODE_STATUS_SERVER = 12 /**< RFC 5997; sent by the library alone */
};

/** Bytes of the packet header. */
#define RAD_HEADER_SIZE 20

/** Bytes of the largest packet (RFC 2865 section 3). */
#define RAD_PACKET_MAX 4096

/** Bytes of an authenticator and of an MD5 digest. */
#define RAD_DIGEST_SIZE 16

/** Bytes of a SHA-1 digest. */
#define RAD_SHA1_SIZE 20

/** Modes of radPackList(). */
enum { RAD_PACK = 0, RAD_PACK_MEASURE = 1 };

/** One request to one server. The texts stay the caller's. */
typedef struct RadRequestDesc {
    uint8_t code;       /**< RAD_CODE_ACCESS_REQUEST or RAD_CODE_ACCOUNTING_REQUEST */
    uint8_t identifier; /**< the reply carries the same */
    const char *host;   /**< server: a name or a dotted IPv4 address */
    uint32_t port;      /**< server: UDP port */
    int32_t timeout;    /**< seconds to wait after each send */
    int32_t retries;    /**< sends after the first */
    const char *secret; /**< shared secret */
} RadRequestDesc;

/** What radRecvfromServer() needs to read a reply. All of it stays the caller's. */
typedef struct RadRecvCtx {
    int socket;                 /**< UDP socket; negative for none */
    const char *host;           /**< server, for messages alone */
    struct sockaddr_in *source; /**< receives the address of the sender */
    const char *secret;         /**< shared secret */
} RadRecvCtx;

/**
 * Encodes one attribute (RFC 2865 section 5): hides User-Password (section 5.2), signs
 * Message-Authenticator (RFC 3579 section 3.2). The caller writes the type.
 *
 * @param value    receives the value, in as much room as measuring asked for; NULL to measure.
 * @param length   receives the attribute's length, bytes of the value + 2; 0 for an attribute of an
 *                 unknown value type, which is left out.
 * @param pair     the attribute.
 * @param secret   shared secret; NULL while measuring.
 * @param request  the request as packed so far; NULL while measuring.
 * @return 0; -1, without a log, for a missing argument, a value that does not fit one attribute, or
 *         exhausted memory.
 */
LANYARD_API int radPairEncode(uint8_t *value, uint8_t *length, const RadPair *pair,
                              const char *secret, RadPacket *request);

/**
 * Measures or packs a list of attributes, with the pack hook if one is installed.
 *
 * @param pairs  the list, not empty.
 * @param mode   RAD_PACK_MEASURE or RAD_PACK.
 * @param out    RAD_PACK_MEASURE: a `uint32_t *`, which receives the bytes of all attributes.
 *               RAD_PACK: a `RadPacket *` with its length field set and that many bytes of room;
 *               one more argument follows, a `const char *` with the shared secret.
 * @return 0; -1 when an attribute cannot be encoded or does not fit; the pack hook's own value.
 */
LANYARD_API int radPackList(const RadPair *pairs, int mode, void *out, ...);

/**
 * Sends one request to one server over UDP, again after each time-out up to the retry count, and
 * reads the reply (RFC 2865 section 3). The first datagram that arrives ends the exchange, valid or
 * not, from any sender. radLastError() then says what became of it.
 *
 * @param desc      the request.
 * @param pairs     its attributes; a Message-Authenticator has to be the last.
 * @param replyOut  receives the reply's attributes, which the caller frees with radPairListFree();
 *                  NULL when there are none.
 * @return code of the reply; -1 when there is no valid one; the value of a hook that refused, which
 *         may look like a code if it is positive. No reply, socket errors and invalid replies are
 *         logged at level 8; exhausted memory and a failed send are not.
 */
LANYARD_API int radSendtoServer(const RadRequestDesc *desc, const RadPair *pairs,
                                RadPair **replyOut);

/**
 * Reads and checks one reply: length, identifier, response authenticator (RFC 2865 section 3), then
 * every attribute with the unpack hook or radPairUnpackDefault(). radLastError() stays as it was.
 *
 * @param ctx       where to read.
 * @param request   the request as it was sent.
 * @param replyOut  receives the reply's attributes, which the caller frees with radPairListFree();
 *                  NULL when there are none.
 * @return code of the reply; -1 with what is wrong with it logged at level 8; the value of a hook
 *         that refused.
 */
LANYARD_API int radRecvfromServer(const RadRecvCtx *ctx, RadPacket *request, RadPair **replyOut);

/**
 * MD5 in one call (RFC 1321).
 *
 * @param out     receives 16 bytes.
 * @param data    the message.
 * @param length  its bytes.
 * @return 1; 0 for NULL or a failure of the crypto library.
 */
LANYARD_API int rc_md5_calc(uint8_t *out, const uint8_t *data, uint32_t length);

/**
 * HMAC-MD5 (RFC 2104).
 *
 * @param out         receives 16 bytes.
 * @param data        the message.
 * @param dataLength  its bytes.
 * @param key         the key.
 * @param keyLength   its bytes; a key of more than 64 is replaced by its MD5 digest.
 */
LANYARD_API void radHmacMd5Calc(uint8_t *out, const uint8_t *data, uint32_t dataLength,
                                const uint8_t *key, uint32_t keyLength);

/**
 * The MD5 stream cipher of RADIUS: User-Password (RFC 2865 section 5.2) and, with a salt, the
 * MS-MPPE keys (RFC 2548 section 2.4.2). Works on whole blocks of 16 bytes and leaves the bytes
 * after them alone.
 *
 * @param secret         shared secret.
 * @param authenticator  16 bytes: authenticator of the request.
 * @param salt           salt; NULL for none.
 * @param saltLength     its bytes.
 * @param input          what to hide or to reveal.
 * @param length         its bytes; below 16 nothing is done.
 * @param output         receives as many bytes; may not overlap `input`.
 * @param decrypt        0 hides, any other value reveals.
 * @return 0; -1, without a log, for a missing argument or exhausted memory.
 */
LANYARD_API int radMd5Crypt(const char *secret, const uint8_t *authenticator, const uint8_t *salt,
                            int saltLength, const uint8_t *input, int length, uint8_t *output,
                            int decrypt);

/**
 * Checks the Message-Authenticator of a reply (RFC 3579 section 3.2).
 *
 * @param reply                 a whole packet: as many bytes as its length field says. Changed
 *                              during the check and restored; with a missing or malformed attribute
 *                              its header keeps the request's authenticator.
 * @param secret                shared secret.
 * @param requestAuthenticator  16 bytes: authenticator of the request.
 * @return 0 when it matches; -1 otherwise (logged at level 8).
 */
LANYARD_API int radCheckMsgAuth(RadPacket *reply, const char *secret,
                                const uint8_t *requestAuthenticator);

/**
 * Sends a request to the configured servers in order until one answers. For each server it adds a
 * new identifier, NAS-Identifier or NAS-IP-Address (RFC 2865 sections 5.32 and 5.4), and for an
 * Access-Request a Message-Authenticator (RFC 3579 section 3.2). radLastErrorAt() then says what
 * became of it at each server.
 *
 * @param code      RAD_CODE_ACCESS_REQUEST or RAD_CODE_ACCOUNTING_REQUEST.
 * @param pairs     the request's attributes. The list stays the caller's and `pairs` its first
 *                  pair. Pointers to other pairs may become invalid: the attributes above are
 *                  replaced for each server, and those for the last one stay in the list.
 * @param replyOut  receives the reply's attributes, which the caller frees with radPairListFree();
 *                  NULL when there are none.
 * @return code of the reply; -1 when no server gave a valid one; the value of a hook that refused.
 *         A server without a secret ends the exchange with -1, and so does an own host name without
 *         an address where NAS-IP-Address is needed. Another code, no configured server and a
 *         missing secret are logged at level 8.
 */
LANYARD_API int radBuildAndSendReq(int code, RadPair *pairs, RadPair **replyOut);

/**
 * Sends a request to every configured server, as radBuildAndSendReq() does to one.
 *
 * @param code      as for radBuildAndSendReq().
 * @param pairs     as for radBuildAndSendReq().
 * @param replyOut  receives the attributes of the last server's reply, which the caller frees with
 *                  radPairListFree(); NULL when there are none.
 * @param results   receives the result of radSendtoServer() for each configured server, in their
 *                  order; room for RAD_SERVERS_MAX is always enough.
 * @return the last server's result; -1 at once, with the later results untouched, when a server has
 *         no secret or the request cannot be completed for it.
 */
LANYARD_API int radBuildAndSendReqCheckAllServer(int code, RadPair *pairs, RadPair **replyOut,
                                                 int32_t *results);

/** A SHA-1 digest in progress. The caller provides it, usually on the stack. */
typedef struct SHA1_CTX {
    uint32_t state[5];  /**< chaining values */
    uint32_t count[2];  /**< bits of the message so far: low word, high word */
    uint8_t buffer[64]; /**< the last block, not full yet */
} SHA1_CTX;

/**
 * Starts a digest with this library's SHA-1. It reads the bytes of a message word least significant
 * first, and is FIPS 180-1 in everything else. So its digests are not those of the published
 * algorithm.
 *
 * @param ctx  the digest.
 */
LANYARD_API void SHA1Init(SHA1_CTX *ctx);

/**
 * Adds bytes to the message.
 *
 * @param ctx   a started digest.
 * @param data  the bytes.
 * @param len   their number.
 */
LANYARD_API void SHA1Update(SHA1_CTX *ctx, const uint8_t *data, uint32_t len);

/**
 * Ends a digest and wipes it.
 *
 * @param digest  receives 20 bytes.
 * @param ctx     a started digest; all zeros afterwards.
 */
LANYARD_API void SHA1Final(uint8_t digest[20], SHA1_CTX *ctx);

/**
 * Compresses one block.
 *
 * @param state  chaining values, changed in place.
 * @param block  64 bytes.
 */
LANYARD_API void SHA1Transform(uint32_t state[5], const uint8_t block[64]);

/**
 * Resolves a host name: first with the system's resolver, then from the file "/var/hosts" (lines of
 * address and name), which it creates empty if it is missing. IPv4 only.
 *
 * @param name  a host name or a dotted address.
 * @return the address in network byte order; 0 for NULL or when the name is not found; 0xFFFFFFFF
 *         when "/var/hosts" can be neither read nor created, or has no address beside the name. A
 *         name that the resolver does not know is logged at level 8.
 */
LANYARD_API uint32_t radGetIPByName(const char *name);

/**
 * Resolves this machine's own host name, as radGetIPByName().
 *
 * @return the address in network byte order; 0 when there is none (logged at level 8); 0xFFFFFFFF
 *         as for radGetIPByName().
 */
LANYARD_API uint32_t radGetHostIP(void);

#ifdef __cplusplus
}
#endif

#endif
