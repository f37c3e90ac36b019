/**
 * @file
 * Why the last request of this thread failed.
 *
 * A login returns "failure", whether the password was wrong or the cable out. Ask here, in the
 * thread that made the call and before its next one:
 *
 *     if (radAuth("alice", "wonderland") != 0) {
 *         const RadLastError *error = NULL;
 *         for (int i = 0; (error = radLastErrorAt(i)) != NULL; i++) {
 *             char text[RAD_LAST_ERROR_TEXT_SIZE];
 *             radLastErrorText(error, text, sizeof(text));
 *             fprintf(stderr, "  %s\n", text);
 *         }
 *     }
 *
 * It prints, for example:
 *
 *     198.51.100.1:1812: sending failed: No route to host
 *     203.0.113.1:1812: no reply in 3 tries of 10 s: server down, wrong port, or wrong secret
 *
 * Every login and accounting call, radBuildAndSendReq(), radBuildAndSendReqCheckAllServer() and
 * radSendtoServer() forgets the earlier records first.
 *
 * Threads: each has its own records, in its thread-local storage. Nothing is allocated, nothing
 * here fails for want of memory, nothing is logged.
 */
#ifndef LANYARD_RADIUS_ERROR_H
#define LANYARD_RADIUS_ERROR_H

#include <stddef.h>
#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes of a host name in a record, with its NUL. A longer name is cut. */
#define RAD_LAST_ERROR_HOST_SIZE 256

/** Room for every text of radLastErrorText(). */
#define RAD_LAST_ERROR_TEXT_SIZE 512

/** The step at which a request ended. */
enum {
    RAD_STEP_PREPARE = 1, /**< configuration, attributes of the request, packing */
    RAD_STEP_RESOLVE,     /**< from host name to address */
    RAD_STEP_SOCKET,      /**< opening the socket */
    RAD_STEP_BIND,        /**< binding it to a port */
    RAD_STEP_SEND,        /**< sending */
    RAD_STEP_WAIT,        /**< waiting for the reply */
    RAD_STEP_RECEIVE,     /**< reading it */
    RAD_STEP_REPLY        /**< checking it: the reply is valid when the reason is 0 */
};

/** Why it ended there, where the system has no `errno` for it. All are negative. */
enum {
    RAD_REASON_NOT_CONFIGURED = -1,       /**< no server of this kind, or no time-out */
    RAD_REASON_REQUEST_CODE = -2,         /**< neither Access- nor Accounting-Request */
    RAD_REASON_NO_SECRET = -3,            /**< the server has no secret */
    RAD_REASON_NO_OWN_ADDRESS = -4,       /**< no address of this machine's own name */
    RAD_REASON_NO_MEMORY = -5,            /**< the partition is exhausted */
    RAD_REASON_NO_RANDOM = -6,            /**< no random bytes for the authenticator */
    RAD_REASON_PACK = -7,                 /**< an attribute cannot be added or packed */
    RAD_REASON_TOO_LARGE = -8,            /**< more than ::RAD_PACKET_MAX bytes */
    RAD_REASON_HOST_UNKNOWN = -9,         /**< the host name has no address */
    RAD_REASON_NO_REPLY = -10,            /**< nothing came back in all tries */
    RAD_REASON_REPLY_SHORT = -11,         /**< shorter than a header */
    RAD_REASON_REPLY_LENGTH = -12,        /**< its length field is not its length */
    RAD_REASON_REPLY_IDENTIFIER = -13,    /**< it answers another request */
    RAD_REASON_REPLY_AUTHENTICATOR = -14, /**< response authenticator (RFC 2865 section 3) */
    RAD_REASON_REPLY_ATTRIBUTES = -15,    /**< malformed, or no memory for them */
    RAD_REASON_REPLY_UNSIGNED = -16,  /**< no Message-Authenticator, where there has to be one */
    RAD_REASON_REPLY_SIGNATURE = -17, /**< Message-Authenticator (RFC 3579 section 3.2) */
    RAD_REASON_REPLY_ATTRIBUTE = -18, /**< `attribute` was refused */
    RAD_REASON_REPLY_HOOK = -19       /**< the program's unpack hook refused `attribute` */
};

/** What became of a request to one server. Read it only. */
typedef struct RadLastError {
    char host[RAD_LAST_ERROR_HOST_SIZE]; /**< the server; empty when no server was asked */
    uint32_t port;                       /**< its UDP port */
    int32_t step;                        /**< one of RAD_STEP_ */
    int32_t reason;    /**< 0: the reply is valid; positive: an `errno`; negative: RAD_REASON_ */
    int32_t code;      /**< code of the valid reply, such as RAD_CODE_ACCESS_REJECT; else 0 */
    int32_t attribute; /**< number of the attribute that had the reply refused; else 0 */
    int32_t tries;     /**< number of sends, without those after a signal */
    int32_t timeout;   /**< seconds to wait after each */
} RadLastError;

/**
 * Returns the record of the server that the last request of this thread asked last. For a request
 * that was answered, that is the server that answered.
 *
 * @return the record, which belongs to the library and is valid until the next request or the end
 *         of this thread; NULL when this thread has made no request, or the arguments of its last
 *         call were refused.
 */
LANYARD_API const RadLastError *radLastError(void);

/**
 * Returns the record of one of the servers that the last request of this thread asked.
 *
 * @param index  0 for the server that was asked first, up to 7.
 * @return the record, as radLastError(); NULL when there are not so many.
 */
LANYARD_API const RadLastError *radLastErrorAt(int index);

/**
 * Writes a record as one line of text, without a newline and without secrets.
 *
 * @param error   a record of this thread, or a copy of one.
 * @param buffer  receives the line, cut to fit, and a NUL.
 * @param size    bytes of `buffer`, 1 or more; RAD_LAST_ERROR_TEXT_SIZE is always enough.
 * @return characters of the whole line, which may be more than fit; -1 for NULL or a size of 0.
 */
LANYARD_API int radLastErrorText(const RadLastError *error, char *buffer, size_t size);

#ifdef __cplusplus
}
#endif

#endif
