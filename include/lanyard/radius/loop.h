/**
 * @file
 * Many requests in flight from one thread: a gateway that serves hundreds of users out of one event
 * loop.
 *
 *     RadDone done = NULL;  // a function of yours, as below
 *     RadLoop *loop = radLoopCreate();
 *     RadPair *pairs = NULL;
 *     radPairAdd(&pairs, RAD_ATTR_USER_NAME, "alice", 0);
 *     radPairAdd(&pairs, RAD_ATTR_USER_PASSWORD, "wonderland", 0);
 *     radRequestStart(loop, RAD_CODE_ACCESS_REQUEST, pairs, done, NULL);  // and many more
 *     radPairListFree(pairs);
 *     while (radLoopRun(loop, -1) > 0) {
 *     }
 *     radLoopDestroy(loop);
 *
 * The callback is told of each request once:
 *
 *     static void done(void *context, RadRequest *request, int code, RadPair *reply) {
 *         puts(code == RAD_CODE_ACCESS_ACCEPT ? "come in" : "no");
 *         radPairListFree(reply);
 *     }
 *
 * For logins there are radAuthStart() and its kin below, whose callback needs to free nothing.
 * A program with an event loop of its own waits for radLoopDescriptor() to become readable, and
 * then calls radLoopRun(loop, 0); examples/many_logins.c does so with poll().
 *
 * How servers are asked. Requests of a loop are resilient, as all are with ::RAD_OPTION_RESILIENT:
 *
 * - Servers that are known to be dead come last (status.h).
 * - The waits between the sends to a server begin with 2 seconds and double, with 10 % of chance,
 *   but are never longer than the server's time-out (RFC 5080 section 2.2.1). There are as many
 *   sends as the server's retries say and one; only two while a living server is still to be asked.
 *   The last one gets its whole time-out in any case.
 * - A server that the network says is not there is left at once, unless it is the last one: that
 *   may be back before its time is over.
 * - A datagram that is no valid reply is counted and ignored; the wait goes on.
 * - A request with a State goes to the server that gave it, while that answers.
 * - Replies to a request with an EAP-Message have to carry a Message-Authenticator
 *   (::RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR).
 * - A retransmission is the same packet. A request with Acct-Delay-Time is packed anew, with the
 *   time that has passed added (RFC 2866 section 5.2).
 *
 * A host name among the servers, and this device's own name for NAS-IP-Address, is resolved when a
 * loop first needs it and then once a minute, which may wait for a name server; while nobody can be
 * asked for want of an address, once a second. With addresses in the list, and a NAS-Identifier for
 * each server or an own name in the hosts file, nothing ever waits.
 *
 * Hooks (frame.h) run within radRequestStart() and radLoopRun(). They may call nothing of that loop.
 *
 * Memory: a request in flight needs less than 700 bytes beside its packet; a loop less than 4 KiB,
 * and 2 KiB for each server that it talks to.
 *
 * Threads: a loop, and all requests of it, belong to one thread at a time; loops know nothing of each
 * other. The configuration may be changed by the loop's own thread while requests are in flight:
 * they go on with the servers they began with.
 */
#ifndef LANYARD_RADIUS_LOOP_H
#define LANYARD_RADIUS_LOOP_H

#include <stdint.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Requests in flight, their sockets and their one descriptor. */
typedef struct RadLoop RadLoop;

/** A request that has been started and has not ended. */
typedef struct RadRequest RadRequest;

/**
 * Told that a request has ended, by radLoopRun(). It may start and cancel requests, of this loop too,
 * and destroy the loop. radLastError() tells of this request meanwhile.
 *
 * @param context  as given to radRequestStart().
 * @param request  the request, for comparison alone: it has ended.
 * @param code     as radBuildAndSendReq() returns: the code of the reply; -1 when no server gave a
 *                 valid one; the value of a hook that refused.
 * @param reply    the reply's attributes, which the callback frees with radPairListFree(); NULL
 *                 when there are none.
 */
typedef void (*RadDone)(void *context, RadRequest *request, int code, RadPair *reply);

/**
 * Makes a loop.
 *
 * @return the loop, which the caller destroys with radLoopDestroy() before radLibExit(); NULL when
 *         memory or descriptors are exhausted.
 */
LANYARD_API RadLoop *radLoopCreate(void);

/**
 * Returns the loop's descriptor. It is readable when radLoopRun() has something to do, be it a
 * datagram or the end of a wait. It stays the same for the life of the loop.
 *
 * @param loop  the loop.
 * @return the descriptor, which stays the loop's and is only to be waited for; -1 for NULL.
 */
LANYARD_API int radLoopDescriptor(const RadLoop *loop);

/**
 * Does what is to be done: reads replies, sends again, tells callbacks which requests have ended.
 *
 * @param loop          the loop.
 * @param milliseconds  how long to wait for a request to end: 0 not at all; -1 until one has ended,
 *                      or none is in flight.
 * @return how many requests have ended, 0 also after a signal handler ran; -1 for NULL, from within a
 *         callback of this loop, and when waiting fails, with `errno`.
 */
LANYARD_API int radLoopRun(RadLoop *loop, int milliseconds);

/**
 * Ends a loop. What is in flight is cancelled, without callbacks.
 *
 * @param loop  the loop; NULL is ignored. From within a callback of it, the loop ends with that
 *              callback.
 */
LANYARD_API void radLoopDestroy(RadLoop *loop);

/**
 * Starts a request to the configured servers, and sends its first packet. The callback is never
 * called from within: a request that fails at once ends with the next radLoopRun().
 *
 * @param loop     the loop.
 * @param code     RAD_CODE_ACCESS_REQUEST or RAD_CODE_ACCOUNTING_REQUEST.
 * @param pairs    the request's attributes, copied. Completed as by radBuildAndSendReq().
 * @param done     told when the request has ended.
 * @param context  given to `done`.
 * @return the request, which belongs to the loop and is gone when `done` returns or after
 *         radRequestCancel(); NULL for a missing argument or when memory is exhausted. No server, or
 *         another code, ends the request with -1 and is logged as by radBuildAndSendReq().
 */
LANYARD_API RadRequest *radRequestStart(RadLoop *loop, int code, const RadPair *pairs, RadDone done,
                                        void *context);

/**
 * Ends a request without its callback. Its reply, if one comes, counts as a stray.
 *
 * @param request  the request; NULL is ignored, and so is the one whose callback runs.
 */
LANYARD_API void radRequestCancel(RadRequest *request);

/** What became of a login. */
typedef struct RadLogin {
    int result;              /**< 0: accepted; -1: not */
    int code;                /**< as ::RadDone */
    uint32_t idleMinutes;    /**< Idle-Timeout, rounded up; 0 when the reply has none */
    uint32_t sessionMinutes; /**< Session-Timeout, likewise */
    RadPair *reply;          /**< the reply's attributes; freed after the callback */
} RadLogin;

/**
 * Told how a login ended; as ::RadDone.
 *
 * @param context  as given at the start.
 * @param request  the request, for comparison alone.
 * @param login    the outcome, valid during the callback.
 */
typedef void (*RadLoginDone)(void *context, RadRequest *request, const RadLogin *login);

/**
 * Starts a login with PAP, as radAuth() but for its output: nothing is printed.
 *
 * @param loop      the loop.
 * @param userName  at most 64 characters.
 * @param password  clear text, at most 48 characters.
 * @param done      told how it ended.
 * @param context   given to `done`.
 * @return as radRequestStart(); NULL for arguments that are refused too.
 */
LANYARD_API RadRequest *radAuthStart(RadLoop *loop, const char *userName, const char *password,
                                     RadLoginDone done, void *context);

/**
 * Starts a login with CHAP, as radChapAuth() but for its output.
 *
 * @param loop             the loop.
 * @param userName         at most 64 characters.
 * @param chapPassword     identifier and digest, as radChapRespMake() makes them.
 * @param chapPasswordLen  their bytes.
 * @param chapChallenge    the challenge.
 * @param chapChallengeLen its bytes.
 * @param done             told how it ended.
 * @param context          given to `done`.
 * @return as radAuthStart().
 */
LANYARD_API RadRequest *radChapAuthStart(RadLoop *loop, const char *userName,
                                         const uint8_t *chapPassword, int chapPasswordLen,
                                         const uint8_t *chapChallenge, int chapChallengeLen,
                                         RadLoginDone done, void *context);

/**
 * Starts a login with MS-CHAP, as radMschap() but for its output. The NT-Response is always computed
 * in the process.
 *
 * @param loop      the loop.
 * @param userName  at most 64 characters.
 * @param password  clear text, UTF-8.
 * @param done      told how it ended.
 * @param context   given to `done`.
 * @return as radAuthStart().
 */
LANYARD_API RadRequest *radMschapStart(RadLoop *loop, const char *userName, const char *password,
                                       RadLoginDone done, void *context);

/**
 * Starts a login with MS-CHAPv2, as radMschapv2() but for its output. The NT-Response is always
 * computed in the process, with the published SHA-1 as ::RAD_OPTION_STANDARD_SHA1 has it.
 *
 * @param loop      the loop.
 * @param userName  at most 64 characters.
 * @param password  clear text, UTF-8.
 * @param done      told how it ended.
 * @param context   given to `done`.
 * @return as radAuthStart().
 */
LANYARD_API RadRequest *radMschapv2Start(RadLoop *loop, const char *userName, const char *password,
                                         RadLoginDone done, void *context);

#ifdef __cplusplus
}
#endif

#endif
