/**
 * @file
 * The EAP relay (RFC 3579): a service that takes EAP packets from the port-access authenticator
 * ("Pnac") over the management bus, relays them to a RADIUS server and sends the answers back.
 * docs/eap-relay.md draws it.
 *
 * Messages carry module 8. The relay has one thread: the bus handler runs inside the listen call,
 * the relay pass and the ageing pass between two of them, so nothing here locks.
 */
#ifndef LANYARD_RADIUS_EAP_H
#define LANYARD_RADIUS_EAP_H

#include <stdint.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>
#include <xbus.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The relay's module on the bus, and the port-access authenticator's. */
enum { RAD_EAP_MODULE = 8, RAD_EAP_PNAC_MODULE = 6 };

/** Bus command of a database change notice; every other command carries an EAP packet. */
#define RAD_EAP_CMD_DB_UPDATE 4

/** Second word of every record to Pnac, and command of a reply whose conversation is unknown. */
#define RAD_EAP_NO_CMD 0xFFFFFFFFU

/** Octets of the largest EAP packet. */
#define RAD_EAP_PACKET_MAX 1500

/** Ageing passes that a conversation lives. */
#define RAD_EAP_LIFE 3000

/** Elements of the key-information block. */
enum {
    RAD_EAP_KEY_RECV = 1,          /**< MS-MPPE-Recv-Key */
    RAD_EAP_SESSION_REAUTH = 2,    /**< Session-Timeout, then authenticate again */
    RAD_EAP_SESSION_CHALLENGE = 3, /**< Session-Timeout of a challenge */
    RAD_EAP_KEY_SEND = 4,          /**< MS-MPPE-Send-Key */
    RAD_EAP_SESSION_TERMINATE = 5  /**< Session-Timeout, then the end */
};

/** Head of a bus record, host byte order; `length` octets of payload follow. */
typedef struct RadEapXbusMsg {
    uint32_t cookie;  /**< Pnac's handle of the conversation */
    uint32_t command; /**< to the relay: bus command of its replies; to Pnac: RAD_EAP_NO_CMD */
    uint32_t length;  /**< octets of the payload */
} RadEapXbusMsg;

/** One conversation. All that it points to is the entry's own. */
typedef struct RadEapQueueEntry {
    PalListNode node;
    char *identity;      /**< EAP identity, NUL-terminated; NULL until one was seen */
    uint8_t reserved;    /**< 0 */
    RadPair *state;      /**< State of the last Access-Challenge; NULL for none */
    uint8_t *packet;     /**< the EAP packet that waits; NULL for none */
    uint32_t packetLen;  /**< its octets */
    uint32_t cookie;     /**< Pnac's handle of the conversation */
    uint32_t destModule; /**< module that replies go to */
    uint32_t replyCmd;   /**< bus command of replies */
    int32_t age;         /**< ageing passes since the first packet */
} RadEapQueueEntry;

/** The conversations, at most one for each cookie. */
extern LANYARD_API PalList radEapMsgQueue;

/** The relay's place on the bus; NULL before it is registered. */
extern LANYARD_API XbusCtx *pRadEapXbusCtx;

/**
 * Queues an EAP packet for its conversation, whose pending packet it replaces.
 *
 * @param packet      the packet, copied.
 * @param length      its octets, 4 to 1500; others are dropped (logged at level 8).
 * @param cookie      the conversation, not 0.
 * @param destModule  module that replies go to; kept from a conversation's first packet.
 * @param replyCmd    bus command of replies; likewise.
 * @return 0, also for a dropped packet; -1 for a missing argument or exhausted memory, which ends
 *         the conversation.
 */
LANYARD_API int radEapRecv(const uint8_t *packet, int32_t length, uint32_t cookie,
                           uint32_t destModule, uint32_t replyCmd);

/**
 * Drops the pending packet of a conversation; the whole conversation, when it holds neither
 * identity nor State.
 * @return 0; -1 for NULL.
 */
LANYARD_API int radEapMsgQueueRelease(RadEapQueueEntry *entry);

/**
 * Forgets identity and State of a conversation.
 * @return 0.
 */
LANYARD_API int radEapCtxClear(RadEapQueueEntry *entry);

/**
 * Drops all conversations.
 * @return 0.
 */
LANYARD_API int radEapMsgQueueCleanUp(void);

/**
 * One relay pass: takes the first pending packet, relays it and answers Pnac. It waits for the
 * server.
 * @return 0.
 */
LANYARD_API int radEapRecvTask(void);

/**
 * One ageing pass: ends conversations older than RAD_EAP_LIFE passes, with EAP-Failure where a
 * packet is pending.
 * @return 0.
 */
LANYARD_API int radEapCtxTimeout(void);

/**
 * Builds the key-information block that follows an EAP packet to Pnac: its length (2 octets), then
 * elements of type (1), length (1) and value; most significant octet first.
 *
 * @param reply       attributes of the server's reply; NULL for none.
 * @param outBlock    receives the block, which the caller frees with `palMemPartFree(radMemPartId,
 *                    ...)`; NULL when the reply has neither Session-Timeout nor MS-MPPE keys.
 * @param outLen      receives its octets.
 * @param radiusCode  RAD_CODE_ACCESS_ACCEPT or RAD_CODE_ACCESS_CHALLENGE.
 * @return 0; -1 for a missing out-pointer or exhausted memory.
 */
LANYARD_API int radEapKeyInfoBuild(RadPair *reply, uint8_t **outBlock, uint32_t *outLen,
                                   int radiusCode);

/**
 * Sends EAP-Success or EAP-Failure (RFC 3748 section 4.2) to Pnac.
 *
 * @param eapResponse  the EAP-Response that it answers.
 * @param cookie       the conversation.
 * @param eapCode      3 Success, 4 Failure.
 * @param data         what follows the EAP packet, outside of its length; NULL for nothing.
 * @param dataLen      its octets.
 * @return 0, whether or not the bus took it; -1 for a missing packet or exhausted memory.
 */
LANYARD_API int radEapSendResult(const uint8_t *eapResponse, uint32_t cookie, uint8_t eapCode,
                                 const uint8_t *data, uint32_t dataLen);

/**
 * Sends a payload to Pnac without waiting. The conversation is queued.
 *
 * @param payload  an EAP packet, a key-information block may follow.
 * @param length   octets of both.
 * @param cookie   the conversation.
 * @return 0; -1 when nothing was sent (logged at level 8, but for an empty queue).
 */
LANYARD_API int radEapSendRtn(const uint8_t *payload, int32_t length, uint32_t cookie);

/**
 * The relay as a program: [-v] [-f] [-d DATABASE]. It becomes a daemon and returns when SIGTERM
 * ended it. The database names dictionary and defaults; servers come as change notices. -v and -f
 * change nothing.
 *
 * @return 0 when the service ran and stopped; -1 otherwise.
 */
LANYARD_API int radEapMain(int argc, char *argv[]);

/**
 * Runs the relay on a library that is started: registers on the bus, becomes a daemon, serves until
 * SIGTERM.
 * @return 0, at once when it runs already; -1 when it could not be set up (logged at level 8).
 */
LANYARD_API int radEapInit(void);

/**
 * Registers the relay on the bus.
 * @return 0; -1 when the bus refuses (logged at level 8).
 */
LANYARD_API int radEapXbusInit(void);

/** The relay's bus handler, an ::XbusHandler: database notices, and records of EAP packets from
 * Pnac. An EAP-Response that finds no memory is answered with EAP-Failure; its conversation is over.
 */
LANYARD_API int radEapIoctlHandler(void *busArg1, void *busArg2, uint32_t cmd, void *buf,
                                   uint32_t len, void *out, uint32_t *outLen);

/** The SIGTERM handler: ends the relay after its current wait. Returns when no other task of the
 * relay's name is there, after ten seconds at the latest. Async-signal-safe. */
LANYARD_API void radEapExit(int signo);

/** Does nothing. @return 0. */
LANYARD_API int radEapASRegister(void);

#ifdef __cplusplus
}
#endif

#endif
