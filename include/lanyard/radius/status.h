/**
 * @file
 * What is known of the servers: which of them answer, how fast, and how often (RFC 4668 and RFC
 * 4670 for clients).
 *
 *     RadServerStatus status;
 *     for (int i = 0; radServerStatusAt(i, &status) == 0; i++) {
 *         printf("%s:%u %s, %llu requests, %u us\n", status.host, status.port,
 *                status.alive ? "alive" : "dead", (unsigned long long)status.requests,
 *                status.medianMicroseconds);
 *     }
 *
 * Only requests of a loop (loop.h) and those with ::RAD_OPTION_RESILIENT are counted and remembered.
 * A server is dead when a request has used up its sends to it and nothing at all has come from it
 * since the first of them. For ::RAD_OPTION_DEAD_TIME seconds it is asked last; then one request, or
 * a Status-Server packet (::RAD_OPTION_STATUS_SERVER), asks it first while the others still pass it
 * over. Any valid reply makes it alive.
 *
 * Status-Server packets and their answers count as requests and replies. A round trip begins with the
 * first send.
 *
 * There is one table for the process, with room for 32 servers; the one that was not asked for the
 * longest time makes room for a new one.
 *
 * Threads: any.
 */
#ifndef LANYARD_RADIUS_STATUS_H
#define LANYARD_RADIUS_STATUS_H

#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One server. Counters begin when it is first asked. */
typedef struct RadServerStatus {
    char host[16];               /**< dotted IPv4 address */
    uint16_t port;               /**< UDP port */
    uint8_t alive;               /**< 1; 0 while it is dead */
    uint32_t pending;            /**< requests that wait for it */
    uint32_t deadSeconds;        /**< since when it is dead; 0 while alive */
    uint32_t medianMicroseconds; /**< round trip, of the last 64 answered requests; 0 for none */
    uint32_t slowMicroseconds;   /**< the 95th percentile of them */
    uint64_t requests;           /**< without retransmissions */
    uint64_t retransmissions;    /**< sends after the first */
    uint64_t timeouts;           /**< sends without an answer */
    uint64_t accepts;            /**< Access-Accept */
    uint64_t rejects;            /**< Access-Reject */
    uint64_t challenges;         /**< Access-Challenge */
    uint64_t responses;          /**< Accounting-Response */
    uint64_t malformed;          /**< datagrams that are no packet, or whose attributes are none */
    uint64_t badAuthenticators;  /**< wrong response authenticator or Message-Authenticator */
    uint64_t strays;             /**< packets that answer no request that waits */
} RadServerStatus;

/**
 * Reads what is known of one server.
 *
 * @param index   from 0.
 * @param status  receives a copy.
 * @return 0; -1 for NULL, and when there are not so many.
 */
LANYARD_API int radServerStatusAt(int index, RadServerStatus *status);

#ifdef __cplusplus
}
#endif

#endif
