/**
 * @file
 * Log a user in, or send an accounting record, in one call.
 *
 *     if (radLibInit("/var/radius.conf") != 0) {
 *         return 1;  // the log has the file, the line and the reason
 *     }
 *     uint32_t idleMinutes = 0;
 *     uint32_t sessionMinutes = 0;
 *     if (radAuthAndGetAttributes("alice", "wonderland", &idleMinutes, &sessionMinutes) == 0) {
 *         printf("come in for %u minutes (0: as long as you like)\n", sessionMinutes);
 *         radAcct(1);  // Start
 *     }
 *     radLibExit();
 *
 * docs/methods.md says which method to take, and what MS-CHAP needs on the device. When a login
 * fails, radLastError() of error.h says why, and at which server.
 *
 * They print to standard output, attributes with radPairShow(), and log with module 7.
 *
 * Threads: once the library is configured, any number of threads may log in and account at once.
 *
 * Signals: a signal handler that runs in a thread that waits for a reply has the request sent again
 * and the wait begun anew, without counting it as a try, with SA_RESTART too. While handlers run
 * more often than the time-out lasts and no reply comes, the login does not end. Block such signals
 * in the threads that log in, around the call or for good:
 *
 *     sigset_t periodic, before;
 *     sigemptyset(&periodic);
 *     sigaddset(&periodic, SIGALRM);
 *     pthread_sigmask(SIG_BLOCK, &periodic, &before);
 *     int result = radAuth("alice", "wonderland");
 *     pthread_sigmask(SIG_SETMASK, &before, NULL);
 */
#ifndef LANYARD_RADIUS_METHODS_H
#define LANYARD_RADIUS_METHODS_H

#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Longest user name, in characters. */
#define RAD_USER_NAME_MAX 64

/** Longest password of PAP, in characters. */
#define RAD_PASSWORD_MAX 48

/**
 * Authenticates a user with PAP (RFC 2865 section 5.2).
 *
 * Prints one line when the user is accepted, else logs one at level 8. Prints the attributes of the
 * reply, also of a reject.
 *
 * @param userName  at most 64 characters.
 * @param password  clear text, at most 48 characters.
 * @return 0 when the server answered Access-Accept; -1 for a reject, a challenge or any error.
 *         Refused arguments are logged at level 8.
 */
LANYARD_API int radAuth(const char *userName, const char *password);

/**
 * Authenticates a user with PAP at every configured server. Logs at level 128 and prints the
 * attributes of the last reply.
 *
 * @param userName  as for radAuth().
 * @param password  as for radAuth().
 * @param results   receives the code of the reply, or -1, for each configured server, in their
 *                  order; room for eight is always enough.
 * @return 0 when the last server answered Access-Accept, else -1.
 */
LANYARD_API int radAuthCheckAllServer(const char *userName, const char *password, int32_t *results);

/**
 * Authenticates a user with PAP and returns the limits that the server sets. Logs the outcome at
 * level 128 and prints the attributes of the reply below a heading.
 *
 * @param userName        as for radAuth().
 * @param password        as for radAuth().
 * @param idleMinutes     receives Idle-Timeout (RFC 2865 section 5.28) in minutes, rounded up;
 *                        unchanged when the reply has none. NULL: not wanted.
 * @param sessionMinutes  receives Session-Timeout (RFC 2865 section 5.27), likewise.
 * @return 0 when the server answered Access-Accept, else -1. Refused arguments are logged at level
 *         8.
 */
LANYARD_API int radAuthAndGetAttributes(const char *userName, const char *password,
                                        uint32_t *idleMinutes, uint32_t *sessionMinutes);

/**
 * Sends one accounting record, which has Acct-Status-Type and nothing else (RFC 2866 section 5.1).
 * Prints one line when a server answered, else logs one at level 8.
 *
 * @param status  1 Start, 2 Stop, 7 Accounting-On, 8 Accounting-Off; sent as it is.
 * @return 0 when a server answered Accounting-Response, else -1.
 */
LANYARD_API int radAcct(uint32_t status);

/** Bytes of a challenge for radChapRespMake(). */
#define RAD_CHAP_CHALLENGE_SIZE 16

/** Bytes of a CHAP response, its identifier included. */
#define RAD_CHAP_RESPONSE_SIZE 17

/**
 * Computes a CHAP response (RFC 1994 section 4.1) with a random identifier.
 *
 * @param response     receives 17 bytes: the identifier, then MD5 over identifier, password and
 *                     challenge.
 * @param password     clear text.
 * @param passwordLen  its bytes, at most 237.
 * @param challenge    16 bytes.
 * @return 17; 0, with nothing written or logged, for NULL, a longer password or without random
 *         bytes.
 */
LANYARD_API int radChapRespMake(uint8_t *response, const uint8_t *password, int passwordLen,
                                const uint8_t *challenge);

/**
 * Authenticates a user with CHAP (RFC 2865 sections 5.3 and 5.40). Prints and logs as radAuth()
 * does.
 *
 * @param userName          at most 64 characters.
 * @param chapPassword      the response, as from radChapRespMake().
 * @param chapPasswordLen   its bytes: 17.
 * @param chapChallenge     the challenge that it answers.
 * @param chapChallengeLen  its bytes.
 * @return 0 when the server answered Access-Accept, else -1. Refused arguments are logged at level
 *         8.
 */
LANYARD_API int radChapAuth(const char *userName, const uint8_t *chapPassword, int chapPasswordLen,
                            const uint8_t *chapChallenge, int chapChallengeLen);

/**
 * Authenticates a user with CHAP and returns the limits of the reply, also of a reject. Logs at
 * level 128 and prints the string attributes of the reply.
 *
 * @param userName          as for radChapAuth().
 * @param chapPassword      as for radChapAuth().
 * @param chapPasswordLen   as for radChapAuth().
 * @param chapChallenge     as for radChapAuth().
 * @param chapChallengeLen  as for radChapAuth().
 * @param idleTimeout       receives Idle-Timeout in minutes, rounded up; unchanged when the reply
 *                          has none. NULL: not wanted.
 * @param sessionTimeout    receives Session-Timeout, likewise.
 * @return 0 when the server answered Access-Accept, else -1. Refused arguments are logged at level
 *         128.
 */
LANYARD_API int radChapAuthAndGetAttributes(const char *userName, const uint8_t *chapPassword,
                                            int chapPasswordLen, const uint8_t *chapChallenge,
                                            int chapChallengeLen, int *idleTimeout,
                                            int *sessionTimeout);

/**
 * Computes an NT-Response (RFC 2433 section A.5).
 *
 * With RAD_OPTION_BUILTIN_NT_RESPONSE it computes it in the process. Without, it runs the device's
 * program "/nexa2.0/bin/orvane_getNTResponse", which writes the response to the file "/tmp/mschap_"
 * plus the user name.
 *
 * Runs of the program for the same user name take turns, between threads and between processes; a
 * call waits at most 30 seconds for its turn. The lock is a file in a folder that only this user
 * can enter (docs/methods.md). The call removes what is at the path of the response before it runs
 * the program. Afterwards it reads only a regular file with a single name that belongs to the user
 * of the process or to root. No turn, a file that cannot be removed, and anything else at the path
 * are logged at level 8.
 *
 * @param password    clear text, UTF-8 of at most 256 characters.
 * @param ntResponse  receives 24 bytes. Unchanged when the program left no file that can be read;
 *                    in the process, when the password is not as above.
 * @param challenge   8 bytes. For the program none may be 0, since they are one of its arguments.
 * @param userName    no slash, as it is part of a file name. Not used in the process.
 * @return in the process 0. With the program the result of removing the file, 0 on success; 0,
 *         without a response, when memory is exhausted, the turn does not come or there is no file
 *         that can be read; -1 when the program could not be run or an argument is refused.
 */
LANYARD_API int radMschapNtResponse(const char *password, uint8_t *ntResponse,
                                    const uint8_t *challenge, const char *userName);

/**
 * Authenticates a user with MS-CHAP (RFC 2433, RFC 2548 section 2.1). Prints one line when the user
 * is accepted, else logs one at level 8.
 *
 * @param userName  at most 64 characters.
 * @param password  clear text.
 * @return 0 when the server answered Access-Accept, else -1.
 */
LANYARD_API int radMschap(const char *userName, const char *password);

/**
 * Authenticates a user with MS-CHAP and returns the limits of an accept. Logs the acceptance at
 * level 128, other outcomes as radMschap(), and prints the string attributes of an accept.
 *
 * @param userName        as for radMschap().
 * @param password        as for radMschap().
 * @param idleMinutes     receives Idle-Timeout in minutes, rounded up; unchanged when the reply has
 *                        none. NULL: not wanted.
 * @param sessionMinutes  receives Session-Timeout, likewise.
 * @return 0 when the server answered Access-Accept, else -1.
 */
LANYARD_API int radMschapAndGetAttributes(const char *userName, const char *password,
                                          uint32_t *idleMinutes, uint32_t *sessionMinutes);

/**
 * Makes a Peer-Challenge and the NT-Response to it (RFC 2759 section 8.1). The challenge hash is
 * that of SHA1Init(), or with RAD_OPTION_STANDARD_SHA1 that of the published SHA-1.
 *
 * @param ntResponse     receives 24 bytes.
 * @param peerChallenge  receives 16 random bytes.
 * @param userName       user name.
 * @param password       clear text, UTF-8.
 * @param authChallenge  16 bytes: Authenticator-Challenge.
 * @return as radMschapNtResponse().
 */
LANYARD_API int generateMschapv2Response(uint8_t *ntResponse, uint8_t *peerChallenge,
                                         const char *userName, const char *password,
                                         const uint8_t *authChallenge);

/**
 * Authenticates a user with MS-CHAPv2 (RFC 2759, RFC 2548 section 2.3). Prints one line when the
 * user is accepted, else logs one at level 8 and prints every MS-MPPE-Recv-Key of the reply.
 * Standard servers accept nobody unless RAD_OPTION_STANDARD_SHA1 is set.
 *
 * A RESULT OF 0 IS NO ACCEPT WHEN THE REPLY IS A REFUSAL WHOSE LAST VENDOR-SPECIFIC ATTRIBUTE IS AN
 * MS-MPPE-RECV-KEY. LET A USER IN BY THE CODE OF THE REPLY, NOT BY THE 0 ALONE:
 *
 *     if (radMschapv2(userName, password) == 0 &&
 *         radLastError()->code == RAD_CODE_ACCESS_ACCEPT) {
 *         // let her in; after a result of 0 radLastError() is never NULL
 *     }
 *
 * @param userName  at most 64 characters.
 * @param password  clear text.
 * @return 0 when the server answered Access-Accept, and also when the last Vendor-Specific
 *         attribute of another reply was an MS-MPPE-Recv-Key; else -1.
 */
LANYARD_API int radMschapv2(const char *userName, const char *password);

/**
 * Authenticates a user with MS-CHAPv2 and returns the limits of an accept. Logs the acceptance at
 * level 128, other outcomes as radMschapv2(), and prints the string attributes of an accept. HERE
 * TOO 0 IS NO ACCEPT WITHOUT THE CODE OF ONE.
 *
 * @param userName        as for radMschapv2().
 * @param password        as for radMschapv2().
 * @param idleMinutes     receives Idle-Timeout in minutes, rounded up; unchanged when the reply has
 *                        none. NULL: not wanted.
 * @param sessionMinutes  receives Session-Timeout, likewise.
 * @return as radMschapv2().
 */
LANYARD_API int radMschapv2AndGetAttributes(const char *userName, const char *password,
                                            uint32_t *idleMinutes, uint32_t *sessionMinutes);

#ifdef __cplusplus
}
#endif

// Programs that include this header alone use what sample.h declares.
#include <lanyard/radius/sample.h>

#endif
