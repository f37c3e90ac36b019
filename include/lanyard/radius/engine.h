/**
 * @file
 * The request engine: packet transport, authenticators and MD5 helpers, server choice, host names
 * (RFC 2865, RFC 2866, RFC 2104, RFC 3579).
 *
 * After configuration all of it may run in any number of threads at once.
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
    RAD_CODE_ACCESS_CHALLENGE = 11
};

/** Octets of the packet header. */
#define RAD_HEADER_SIZE 20

/** Octets of the largest packet (RFC 2865 section 3). */
#define RAD_PACKET_MAX 4096

/** Octets of an authenticator and of an MD5 digest. */
#define RAD_DIGEST_SIZE 16

/** Octets of a SHA-1 digest. */
#define RAD_SHA1_SIZE 20

/** Modes of radPackList(). */
enum { RAD_PACK = 0, RAD_PACK_MEASURE = 1 };

/** One request to one server. The texts stay the caller's. */
typedef struct RadRequestDesc {
    uint8_t code;       /**< RAD_CODE_ACCESS_REQUEST or RAD_CODE_ACCOUNTING_REQUEST */
    uint8_t identifier; /**< matches the reply to the request */
    const char *host;   /**< server: a name or a dotted address */
    uint32_t port;      /**< server: UDP port */
    int32_t timeout;    /**< seconds to wait after each send */
    int32_t retries;    /**< sends after the first */
    const char *secret; /**< shared secret */
} RadRequestDesc;

/** What radRecvfromServer() needs to read a reply. All of it stays the caller's. */
typedef struct RadRecvCtx {
    int socket;                 /**< UDP socket; negative for none */
    const char *host;           /**< server, for messages */
    struct sockaddr_in *source; /**< receives the address that the reply came from */
    const char *secret;         /**< shared secret */
} RadRecvCtx;

/**
 * Encodes one attribute (RFC 2865 section 5): hides User-Password (section 5.2), signs
 * Message-Authenticator (RFC 3579 section 3.2). The type octet is the caller's. The parameters are
 * those of ::RadPackHook; `value` has the room that measuring asked for.
 *
 * An attribute of an unknown value type gets length octet 0: it is left out.
 *
 * @return 0; -1 for missing arguments, a value that does not fit one attribute, or exhausted
 *         memory.
 */
LANYARD_API int radPairEncode(uint8_t *value, uint8_t *length, const RadPair *pair,
                              const char *secret, RadPacket *request);

/**
 * Measures or packs a list of attributes, through the pack hook where one is installed.
 *
 * @param pairs  the list; NULL is an error.
 * @param mode   RAD_PACK_MEASURE or RAD_PACK.
 * @param out    RAD_PACK_MEASURE: `uint32_t *`, receives the octets of all attributes. RAD_PACK:
 *               `RadPacket *`, a packet with its length field set and that many octets of room; a
 *               further argument `const char *` gives the shared secret.
 * @return 0; -1 when an attribute cannot be encoded or does not fit; or the pack hook's own value.
 */
LANYARD_API int radPackList(const RadPair *pairs, int mode, void *out, ...);

/**
 * Sends one request to one server over UDP, again after each time-out up to the retry count, and
 * reads the reply. The first datagram that arrives ends the exchange, valid or not, whoever sent it.
 *
 * A signal handler that runs in this thread meanwhile has the request sent again and the wait begin
 * anew, which is not counted: with one that runs more often than the time-out lasts the call does
 * not end until something arrives. Block such signals around it (pthread_sigmask()).
 *
 * What became of the request is in radLastError() afterwards, as far as this thread makes no other.
 *
 * @param desc      the request.
 * @param pairs     its attributes; Message-Authenticator, if any, stands last.
 * @param replyOut  receives the reply's attributes, owned by the caller (radPairListFree()), or
 *                  NULL.
 * @return code of the reply; -1, or the value of a hook, which cannot be told from a code when it
 *         is positive, when there is no valid one. Silence, socket errors and invalid replies are
 *         logged at level 8; exhausted memory and a failed send are not.
 */
LANYARD_API int radSendtoServer(const RadRequestDesc *desc, const RadPair *pairs,
                                RadPair **replyOut);

/**
 * Reads and checks one reply: length, identifier, response authenticator (RFC 2865 section 3), then
 * every attribute through the unpack hook or radPairUnpackDefault(). It leaves radLastError() as it
 * was.
 *
 * @param ctx       where to read.
 * @param request   the request as it was sent.
 * @param replyOut  receives the reply's attributes, owned by the caller, or NULL.
 * @return code of the reply; -1, with what is wrong with the reply logged at level 8, or the value
 *         of a hook.
 */
LANYARD_API int radRecvfromServer(const RadRecvCtx *ctx, RadPacket *request, RadPair **replyOut);

/**
 * MD5 in one call.
 *
 * @param out     receives 16 octets.
 * @param data    the octets.
 * @param length  their number.
 * @return 1 on success, 0 otherwise, as `MD5_Final` has it.
 */
LANYARD_API int rc_md5_calc(uint8_t *out, const uint8_t *data, uint32_t length);

/**
 * HMAC-MD5 (RFC 2104).
 *
 * @param out         receives 16 octets.
 * @param data        the octets.
 * @param dataLength  their number.
 * @param key         the key.
 * @param keyLength   its octets; above 64 the key is replaced by its MD5 digest.
 */
LANYARD_API void radHmacMd5Calc(uint8_t *out, const uint8_t *data, uint32_t dataLength,
                                const uint8_t *key, uint32_t keyLength);

/**
 * The MD5 stream cipher of RADIUS: User-Password (RFC 2865 section 5.2) and, with a salt, the
 * MS-MPPE keys (RFC 2548 section 2.4.2). Only whole blocks of 16 octets are done; octets behind
 * them are left alone.
 *
 * @param secret         shared secret.
 * @param authenticator  16 octets: authenticator of the request.
 * @param salt           salt, or NULL.
 * @param saltLength     its octets.
 * @param input          octets to hide or to reveal.
 * @param length         their number; below 16 nothing is done.
 * @param output         receives the result; may not overlap `input`.
 * @param decrypt        0 hides, anything else reveals.
 * @return 0; -1 for a missing argument or exhausted memory.
 */
LANYARD_API int radMd5Crypt(const char *secret, const uint8_t *authenticator, const uint8_t *salt,
                            int saltLength, const uint8_t *input, int length, uint8_t *output,
                            int decrypt);

/**
 * Checks the Message-Authenticator of a reply (RFC 3579 section 3.2).
 *
 * @param reply                 a whole packet; changed while the digest is taken. It keeps the
 *                              request's authenticator in its header when the attribute is missing
 *                              or malformed.
 * @param secret                shared secret.
 * @param requestAuthenticator  16 octets: authenticator of the request.
 * @return 0 when it matches; -1 otherwise (logged at level 8).
 */
LANYARD_API int radCheckMsgAuth(RadPacket *reply, const char *secret,
                                const uint8_t *requestAuthenticator);

/**
 * Sends a request to the configured servers in order until one answers. Every try gets a new
 * identifier, the device's NAS-Identifier or NAS-IP-Address and, for an Access-Request, a
 * Message-Authenticator. For signals see radSendtoServer(); for what became of the request at each
 * server radLastErrorAt().
 *
 * @param code      RAD_CODE_ACCESS_REQUEST (authentication servers) or RAD_CODE_ACCOUNTING_REQUEST.
 * @param pairs     the request's attributes. It stays the caller's and `pairs` stays its first
 *                  pair, but pointers to other pairs may go stale: NAS attributes and
 *                  Message-Authenticator are replaced for each try, and those of the last one stay.
 * @param replyOut  receives the reply's attributes, owned by the caller, or NULL.
 * @return code of the reply; -1, or the value of a hook, when no server gave a valid one. A server
 *         without a secret ends the exchange with -1, and so does an own host name without an
 *         address where NAS-IP-Address is needed; a missing secret, another code and a missing
 *         configuration are logged at level 8.
 */
LANYARD_API int radBuildAndSendReq(int code, RadPair *pairs, RadPair **replyOut);

/**
 * Sends a request to every configured server.
 *
 * @param code      as for radBuildAndSendReq().
 * @param pairs     as for radBuildAndSendReq().
 * @param replyOut  receives the attributes of the last server's reply, owned by the caller, or
 *                  NULL.
 * @param results   one slot for each configured server, in server order: what radSendtoServer()
 *                  yielded.
 * @return the last server's result; -1 at once, with later slots untouched, when a server has no
 *         secret or the request cannot be completed for it.
 */
LANYARD_API int radBuildAndSendReqCheckAllServer(int code, RadPair *pairs, RadPair **replyOut,
                                                 int32_t *results);

/** A digest under way; the caller's, usually on the stack. */
typedef struct SHA1_CTX {
    uint32_t state[5];  /**< chaining values */
    uint32_t count[2];  /**< message bits so far: low word, high word */
    uint8_t buffer[64]; /**< the block that is not full yet */
} SHA1_CTX;

/**
 * Starts a digest with this library's SHA-1: FIPS 180-1 in everything but the order in which the
 * octets of a message word are read, least significant first. Its digests are therefore not those
 * of the published algorithm.
 */
LANYARD_API void SHA1Init(SHA1_CTX *ctx);

/**
 * Adds octets to the message.
 *
 * @param ctx   a started digest.
 * @param data  the octets.
 * @param len   their number.
 */
LANYARD_API void SHA1Update(SHA1_CTX *ctx, const uint8_t *data, uint32_t len);

/**
 * Ends a digest and wipes it.
 *
 * @param digest  receives 20 octets.
 * @param ctx     a started digest; all zeros afterwards.
 */
LANYARD_API void SHA1Final(uint8_t digest[20], SHA1_CTX *ctx);

/**
 * Compresses one block.
 *
 * @param state  chaining values, changed in place.
 * @param block  64 octets.
 */
LANYARD_API void SHA1Transform(uint32_t state[5], const uint8_t block[64]);

/**
 * Resolves a host name: the system's resolver first, then the file "/var/hosts" (lines of address
 * and name), which is created empty when it is missing. IPv4 only.
 *
 * @param name  a host name or a dotted address.
 * @return the address in network byte order; 0 when the name is not found; 0xFFFFFFFF when
 *         "/var/hosts" can be neither read nor created, or holds no address beside the name. A name
 *         that the resolver does not know is logged at level 8.
 */
LANYARD_API uint32_t radGetIPByName(const char *name);

/**
 * @return the address of this machine's own host name in network byte order; 0 when there is none
 *         (logged at level 8); 0xFFFFFFFF as radGetIPByName() has it.
 */
LANYARD_API uint32_t radGetHostIP(void);

#ifdef __cplusplus
}
#endif

#endif
