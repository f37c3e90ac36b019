/**
 * @file
 * The EAP relay with its inside: all of relay.h, and the queue of conversations and the bus
 * context, whose types are the OS layer's. This is the one header that needs `palcore.h` and
 * `xbus.h`, and the one that radius.h does not include.
 *
 * A program that runs the relay's loop itself:
 *
 *     palListInit(&radEapMsgQueue);
 *     if (radLibInit("/var/radius.conf") != 0 || radEapXbusInit() != 0) {
 *         return 1;
 *     }
 *     for (int pass = 0; pass < 1000; pass++) {
 *         xbusListen(pRadEapXbusCtx, 100000);  // microseconds; queues what comes
 *         radEapRecvTask();
 *         radEapCtxTimeout();
 *     }
 *     radEapMsgQueueCleanUp();
 *     xbusUnRegister(pRadEapXbusCtx);
 *     radLibExit();
 *
 * Threads: as relay.h.
 */
#ifndef LANYARD_RADIUS_EAP_H
#define LANYARD_RADIUS_EAP_H

#include <stdint.h>

#include <lanyard/radius/relay.h>
#include <palcore.h>
#include <xbus.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One conversation. All that it points to belongs to it. */
struct RadEapQueueEntry {
    PalListNode node;    /**< links of ::radEapMsgQueue */
    char *identity;      /**< EAP identity, NUL-terminated; NULL until one came */
    uint8_t reserved;    /**< 0 */
    RadPair *state;      /**< State of the last Access-Challenge; NULL for none */
    uint8_t *packet;     /**< the pending EAP packet; NULL for none */
    uint32_t packetLen;  /**< its bytes */
    uint32_t cookie;     /**< Pnac's handle of the conversation */
    uint32_t destModule; /**< bus module that replies go to */
    uint32_t replyCmd;   /**< bus command of replies */
    int32_t age;         /**< ageing passes since its first packet */
};

/** The conversations, in the order of their first packets, at most one for each cookie. */
extern LANYARD_API PalList radEapMsgQueue;

/** The relay's bus context; NULL while it is not registered. */
extern LANYARD_API XbusCtx *pRadEapXbusCtx;

#ifdef __cplusplus
}
#endif

#endif
