/**
 * @file
 * The EAP relay (RFC 3579): takes EAP packets from the port-access authenticator ("Pnac") on the
 * management bus, relays them to a RADIUS server and sends the answers back.
 *
 * A relay whose servers stand in a file; radEapMain() is one whose servers stand in the database:
 *
 *     if (radLibInit("/var/radius.conf") != 0) {
 *         return 1;  // the log has the file, the line and the reason
 *     }
 *     if (radEapInit() != 0) {  // becomes a daemon; returns after SIGTERM
 *         return 1;
 *     }
 *     radLibExit();
 *     return 0;
 *
 * docs/eap-relay.md has the picture and the records on the bus. eap.h has the queue and the bus
 * context, for a program that runs the loop itself. Messages carry module 8.
 *
 * Threads: the relay has one. The bus handler runs inside xbusListen(), and the relay pass and the
 * ageing pass run between two calls of it, so nothing here locks.
 */
#ifndef LANYARD_RADIUS_RELAY_H
#define LANYARD_RADIUS_RELAY_H

#include <stdint.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Module numbers on the bus: the relay's and the port-access authenticator's. */
enum { RAD_EAP_MODULE = 8, RAD_EAP_PNAC_MODULE = 6 };

/** Bus command of a database change notice; every other command carries an EAP packet. */
#define RAD_EAP_CMD_DB_UPDATE 4

/**
 * Bus command that asks a relay with many requests in flight (::RAD_OPTION_EAP_IN_FLIGHT) for its
 * status: a JSON object in `out`, whose length comes back. Another relay takes it for a record.
 */
#define RAD_EAP_CMD_STATUS 5

/** Command in every record to Pnac; also bus command of a reply to an unknown conversation. */
#define RAD_EAP_NO_CMD 0xFFFFFFFFU

/** Bytes of the largest EAP packet. */
#define RAD_EAP_PACKET_MAX 1500

/** Ageing passes that a conversation lives. */
#define RAD_EAP_LIFE 3000

/** Types of the elements of the key-information block. The last two need many requests in flight. */
enum {
    RAD_EAP_KEY_RECV = 1,          /**< MS-MPPE-Recv-Key */
    RAD_EAP_SESSION_REAUTH = 2,    /**< Session-Timeout, then authenticate again */
    RAD_EAP_SESSION_CHALLENGE = 3, /**< Session-Timeout of a challenge */
    RAD_EAP_KEY_SEND = 4,          /**< MS-MPPE-Send-Key */
    RAD_EAP_SESSION_TERMINATE = 5, /**< Session-Timeout, then the end */
    RAD_EAP_FAILURE_REASON = 6,    /**< one byte: one of the RAD_EAP_FAILED_ values */
    RAD_EAP_VLAN = 7               /**< Tunnel-Private-Group-ID of a VLAN (RFC 3580 section 3.31) */
};

/** Why a login failed. */
enum {
    RAD_EAP_FAILED_REJECTED = 1,  /**< a server said so */
    RAD_EAP_FAILED_NO_SERVER = 2, /**< no server answered */
    RAD_EAP_FAILED_NOT_SENT = 3,  /**< the relay could not make or send the request */
    RAD_EAP_FAILED_EXPIRED = 4    /**< the conversation was too old */
};

/**
 * Types of the elements of the port-information block, which may follow the payload of a record to
 * the relay, outside of its length.
 */
enum {
    RAD_EAP_PORT_SUPPLICANT = 1, /**< MAC address of the supplicant: Calling-Station-Id */
    RAD_EAP_PORT_ADDRESS = 2,    /**< MAC address of the port: Called-Station-Id */
    RAD_EAP_PORT_NUMBER = 3,     /**< four bytes: NAS-Port */
    RAD_EAP_PORT_NAME = 4        /**< text: NAS-Port-Id */
};

/** Head of a bus record, in host byte order; `length` bytes of payload follow. */
typedef struct RadEapXbusMsg {
    uint32_t cookie;  /**< Pnac's handle of the conversation */
    uint32_t command; /**< to the relay: bus command of its replies; to Pnac: RAD_EAP_NO_CMD */
    uint32_t length;  /**< bytes of the payload */
} RadEapXbusMsg;

/** One conversation. eap.h has the record. */
typedef struct RadEapQueueEntry RadEapQueueEntry;

/**
 * Queues an EAP packet for its conversation, in place of a pending one.
 *
 * @param packet      the packet, copied.
 * @param length      its bytes, 4 to 1500; others are dropped (logged at level 8).
 * @param cookie      the conversation, not 0.
 * @param destModule  bus module that replies go to. The first packet of a conversation sets it.
 * @param replyCmd    bus command of replies. The first packet of a conversation sets it.
 * @return 0, also for a dropped packet; -1 for NULL or cookie 0, or when memory is exhausted, which
 *         ends the conversation.
 */
LANYARD_API int radEapRecv(const uint8_t *packet, int32_t length, uint32_t cookie,
                           uint32_t destModule, uint32_t replyCmd);

/**
 * Frees the pending packet of a conversation, and the whole conversation when it has neither
 * identity nor State.
 *
 * @param entry  the conversation. Do not use it afterwards without looking it up again.
 * @return 0; -1 for NULL.
 */
LANYARD_API int radEapMsgQueueRelease(RadEapQueueEntry *entry);

/**
 * Forgets identity and State of a conversation.
 *
 * @param entry  the conversation; NULL does nothing.
 * @return 0.
 */
LANYARD_API int radEapCtxClear(RadEapQueueEntry *entry);

/**
 * Frees all conversations.
 *
 * @return 0.
 */
LANYARD_API int radEapMsgQueueCleanUp(void);

/**
 * One relay pass: takes the first pending packet, sends it to the servers and answers Pnac. Waits
 * for the server as long as radBuildAndSendReq().
 *
 * @return 0.
 */
LANYARD_API int radEapRecvTask(void);

/**
 * One ageing pass: ends conversations of more than RAD_EAP_LIFE passes, with EAP-Failure if a
 * packet is pending.
 *
 * @return 0.
 */
LANYARD_API int radEapCtxTimeout(void);

/**
 * Builds the key-information block that follows an EAP packet to Pnac (RFC 2548 sections 2.4.2 and
 * 2.4.3, RFC 3580 section 3.17): its length (2 bytes), then elements of type (1 byte), length (1
 * byte) and value, numbers most significant byte first.
 *
 * @param reply       attributes of the server's reply; NULL for none.
 * @param outBlock    receives the block, which the caller frees with `palMemPartFree(radMemPartId,
 *                    ...)`; NULL when the reply has neither Session-Timeout nor MS-MPPE keys.
 * @param outLen      receives its bytes.
 * @param radiusCode  RAD_CODE_ACCESS_ACCEPT or RAD_CODE_ACCESS_CHALLENGE.
 * @return 0; -1, without a log, for NULL in `outBlock` or `outLen`, or when memory is exhausted.
 */
LANYARD_API int radEapKeyInfoBuild(RadPair *reply, uint8_t **outBlock, uint32_t *outLen,
                                   int radiusCode);

/**
 * Sends EAP-Success or EAP-Failure (RFC 3748 section 4.2) to Pnac.
 *
 * @param eapResponse  the EAP-Response that it answers; its identifier is taken.
 * @param cookie       the conversation.
 * @param eapCode      3 Success, 4 Failure.
 * @param data         what follows the EAP packet, outside of its length; NULL for nothing.
 * @param dataLen      its bytes.
 * @return 0, also when the bus did not take it; -1, without a log, for NULL in `eapResponse` or
 *         when memory is exhausted.
 */
LANYARD_API int radEapSendResult(const uint8_t *eapResponse, uint32_t cookie, uint8_t eapCode,
                                 const uint8_t *data, uint32_t dataLen);

/**
 * Sends a payload to Pnac without waiting for it, as one record.
 *
 * @param payload  an EAP packet, which a key-information block may follow.
 * @param length   bytes of both.
 * @param cookie   the conversation, which has to be in the queue.
 * @return 0; -1 when nothing was sent (logged at level 8, except when the queue is empty).
 */
LANYARD_API int radEapSendRtn(const uint8_t *payload, int32_t length, uint32_t cookie);

/**
 * The relay as a program. Becomes a daemon and returns after SIGTERM. The database has dictionary
 * and defaults; servers come as change notices (mgmt.h).
 *
 * @param argc  number of arguments, the program's name included.
 * @param argv  the arguments: [-v] [-f] [-d DATABASE]. -v changes nothing, nor does -f
 *              after a -d; before one it is refused.
 * @return 0 when the service ran and stopped; -1 otherwise. A usage error prints a line to standard
 *         output; others are logged at level 8.
 */
LANYARD_API int radEapMain(int argc, char *argv[]);

/**
 * What the relay does once it is on the bus, before it serves.
 *
 * @param context  what radEapDetachInstall() was given.
 */
typedef void (*RadEapDetachHook)(void *context);

/**
 * Has radEapInit() call a function in place of daemon(0, 0): one that stays in the foreground, or
 * that tells somebody that the relay is there. What the authenticator sends from then on is served.
 *
 * Call it before radEapInit(), in its thread.
 *
 * @param hook     the function; NULL for daemon(0, 0).
 * @param context  handed to it.
 */
LANYARD_API void radEapDetachInstall(RadEapDetachHook hook, void *context);

/**
 * Runs the relay after radLibInit(): registers on the bus, becomes a daemon or does what
 * radEapDetachInstall() was given, serves until SIGTERM.
 *
 * @return 0 after SIGTERM, or at once when it runs already; -1 when it could not be set up (logged
 *         at level 8).
 */
LANYARD_API int radEapInit(void);

/**
 * Registers the relay on the bus, with radEapIoctlHandler().
 *
 * @return 0; -1 when the bus refuses (logged at level 8).
 */
LANYARD_API int radEapXbusInit(void);

/**
 * The relay's bus handler, an XbusHandler of `xbus.h`: takes change notices of the database to
 * radiusMgmtDBUpdateHandler(), and EAP packets of Pnac to radEapRecv(). When memory for an
 * EAP-Response is exhausted, it answers with EAP-Failure and its conversation ends.
 *
 * @param busArg1  not used.
 * @param busArg2  not used.
 * @param cmd      RAD_EAP_CMD_DB_UPDATE for a change notice, any other number for a record.
 * @param buf      the notice, a RadDbUpdateInfo; or the record, a RadEapXbusMsg and the EAP packet.
 * @param len      bytes of `buf`.
 * @param out      old values of a notice; NULL for none.
 * @param outLen   bytes of `out`; NULL for none.
 * @return of a notice the result of radiusMgmtDBUpdateHandler(); of a record 0, also when it is
 *         dropped; -1 for NULL in `buf` (logged at level 8).
 */
LANYARD_API int radEapIoctlHandler(void *busArg1, void *busArg2, uint32_t cmd, void *buf,
                                   uint32_t len, void *out, uint32_t *outLen);

/**
 * The SIGTERM handler: ends the relay after its current wait. Returns when there is no other task
 * of the relay's name, after ten seconds at the latest. Async-signal-safe.
 *
 * @param signo  not used.
 */
LANYARD_API void radEapExit(int signo);

/**
 * Does nothing.
 *
 * @return 0.
 */
LANYARD_API int radEapASRegister(void);

#ifdef __cplusplus
}
#endif

#endif
