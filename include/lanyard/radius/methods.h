/**
 * @file
 * Authentication and accounting in one call, and the entry points of the command-line programs.
 *
 * The calls of this file work on the servers that radLibInit() or the radConf calls configured. Any
 * number of threads may authenticate and account at once; the sample entry points use getopt() and
 * belong to one thread.
 *
 * What became of the request, and at which server, is in radLastError() of error.h afterwards.
 *
 * While no answer comes, a login never ends in a thread whose waiting a signal handler interrupts
 * more often than the time-out lasts: each time the request is sent again and the wait begins anew,
 * and none of it is counted as a try. SA_RESTART changes nothing. Block such signals in the threads
 * that log in, around the call or for good:
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

/** Longest user name and password, in characters. */
#define RAD_USER_NAME_MAX 64
#define RAD_PASSWORD_MAX 48

/**
 * Authenticates a user with PAP (RFC 2865 section 5.2) and prints the outcome.
 *
 * On acceptance it prints one line to standard output, otherwise it logs one at level 8; the
 * attributes of the reply, also of a reject, are printed with radPairShow().
 *
 * @param userName  at most 64 characters.
 * @param password  clear text, at most 48 characters.
 * @return 0 when the server answered Access-Accept; -1 for a reject, a challenge or any error.
 */
LANYARD_API int radAuth(const char *userName, const char *password);

/**
 * Authenticates a user against every configured server. All messages of its own are at level 128;
 * string attributes of the last reply are printed by radPairShow().
 *
 * @param userName  as for radAuth().
 * @param password  as for radAuth().
 * @param results   one slot for each configured server, as radBuildAndSendReqCheckAllServer() fills
 *                  them.
 * @return 0 when the last server answered Access-Accept, else -1.
 */
LANYARD_API int radAuthCheckAllServer(const char *userName, const char *password, int32_t *results);

/**
 * Authenticates a user with PAP and hands back the limits that the server grants. The outcome is
 * told at level 128; the attributes of the reply are printed below a heading.
 *
 * @param userName        as for radAuth().
 * @param password        as for radAuth().
 * @param idleMinutes     receives Idle-Timeout (RFC 2865 section 5.28) in minutes, rounded up;
 *                        untouched when the reply has none.
 * @param sessionMinutes  receives Session-Timeout (section 5.27), likewise.
 * @return 0 when the server answered Access-Accept, else -1.
 */
LANYARD_API int radAuthAndGetAttributes(const char *userName, const char *password,
                                        uint32_t *idleMinutes, uint32_t *sessionMinutes);

/**
 * Sends one accounting record that carries Acct-Status-Type alone (RFC 2866 section 5.1) and prints
 * the outcome.
 *
 * @param status  1 Start, 2 Stop, 7 Accounting-On, 8 Accounting-Off; sent as given.
 * @return 0 when a server answered Accounting-Response, else -1.
 */
LANYARD_API int radAcct(uint32_t status);

/** Octets of a CHAP challenge as the CHAP functions take it, and of a CHAP response. */
#define RAD_CHAP_CHALLENGE_SIZE 16
#define RAD_CHAP_RESPONSE_SIZE 17

/**
 * Computes a CHAP response (RFC 1994 section 4.1) with a random identifier.
 *
 * @param response     receives 17 octets: the identifier, then MD5 over identifier, password and
 *                     challenge.
 * @param password     clear text.
 * @param passwordLen  its octets, at most 237.
 * @param challenge    16 octets.
 * @return 17; 0, with nothing written, for a longer password, a missing argument or when no random
 *         octet could be had.
 */
LANYARD_API int radChapRespMake(uint8_t *response, const uint8_t *password, int passwordLen,
                                const uint8_t *challenge);

/**
 * Authenticates a user with CHAP (RFC 2865 sections 5.3 and 5.40) and prints the outcome as
 * radAuth() does.
 *
 * @param userName          at most 64 characters.
 * @param chapPassword      the response, as radChapRespMake() makes it.
 * @param chapPasswordLen   its octets: 17.
 * @param chapChallenge     the challenge that it answers.
 * @param chapChallengeLen  its octets.
 * @return 0 when the server answered Access-Accept; -1 otherwise. Refused inputs are logged at
 *         level 8.
 */
LANYARD_API int radChapAuth(const char *userName, const uint8_t *chapPassword, int chapPasswordLen,
                            const uint8_t *chapChallenge, int chapChallengeLen);

/**
 * As radChapAuth(), with all messages at level 128; string attributes are printed by radPairShow().
 * The limits of the reply are handed back, of a reject too.
 *
 * @param idleTimeout     receives Idle-Timeout in minutes, rounded up; untouched when the reply has
 *                        none.
 * @param sessionTimeout  receives Session-Timeout, likewise.
 */
LANYARD_API int radChapAuthAndGetAttributes(const char *userName, const uint8_t *chapPassword,
                                            int chapPasswordLen, const uint8_t *chapChallenge,
                                            int chapChallengeLen, int *idleTimeout,
                                            int *sessionTimeout);

/**
 * Computes an NT-Response (RFC 2433 section A.5), with RAD_OPTION_BUILTIN_NT_RESPONSE in the
 * process: then the challenge may hold any octet and the user name is not looked at. Else with the
 * device's program "/nexa2.0/bin/orvane_getNTResponse", through the file "/tmp/mschap_" and the
 * user name.
 *
 * Any number of threads and processes may ask for one user name: the runs for it exclude each
 * other, and a call waits 30 seconds at most for its turn. The lock stands in the folder "lanyard-"
 * and the user's number, which nobody else can enter (docs/methods.md says where). Whatever lies at
 * the path of the file is removed before the program runs. What lies there afterwards is read only
 * from a regular file with one name that belongs to this process's user or to root. When the turn
 * does not come, the file cannot be removed, or what lies there is something else, that is logged
 * at level 8.
 *
 * @param password    clear text, UTF-8 of at most 256 characters; not NULL, and so are the others.
 * @param ntResponse  receives 24 octets; untouched when the program left no file, or one that is
 *                    not read, and in the process when the password is not of that kind.
 * @param challenge   8 octets, none of them 0: they become an argument of the program.
 * @param userName    part of the file's name: no slash.
 * @return the result of removing the file, 0 on success; -1 when the program could not be run or an
 *         argument is refused; 0, without output, when there is no memory, no turn or no file that
 *         is read. In the process 0, but -1 for NULL.
 */
LANYARD_API int radMschapNtResponse(const char *password, uint8_t *ntResponse,
                                    const uint8_t *challenge, const char *userName);

/**
 * Authenticates a user with MS-CHAP (RFC 2433, RFC 2548 section 2.1). Prints one line on
 * acceptance, logs one at level 8 otherwise.
 *
 * @param userName  at most 64 characters.
 * @param password  clear text.
 * @return 0 when the server answered Access-Accept, else -1.
 */
LANYARD_API int radMschap(const char *userName, const char *password);

/**
 * As radMschap(), with the line of acceptance at level 128 and the limits of an accept handed back.
 *
 * @param idleMinutes     receives Idle-Timeout in minutes, rounded up; untouched when the reply has
 *                        none.
 * @param sessionMinutes  receives Session-Timeout, likewise.
 */
LANYARD_API int radMschapAndGetAttributes(const char *userName, const char *password,
                                          uint32_t *idleMinutes, uint32_t *sessionMinutes);

/**
 * Makes a Peer-Challenge and the NT-Response to it (RFC 2759 section 8.1).
 *
 * The challenge hash is taken with SHA1Init() and its family, or with the published SHA-1 when
 * RAD_OPTION_STANDARD_SHA1 is set.
 *
 * @param ntResponse     receives 24 octets.
 * @param peerChallenge  receives 16 random octets.
 * @param userName       user name.
 * @param password       clear text, UTF-8.
 * @param authChallenge  16 octets: Authenticator-Challenge.
 * @return as radMschapNtResponse().
 */
LANYARD_API int generateMschapv2Response(uint8_t *ntResponse, uint8_t *peerChallenge,
                                         const char *userName, const char *password,
                                         const uint8_t *authChallenge);

/**
 * Authenticates a user with MS-CHAPv2 (RFC 2759, RFC 2548 section 2.3). Prints one line on
 * acceptance; otherwise it logs one at level 8 and prints every MS-MPPE-Recv-Key of the reply.
 * Standard servers accept only with RAD_OPTION_STANDARD_SHA1 set.
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
 * As radMschapv2(), with the line of acceptance at level 128 and the limits of an accept handed
 * back. HERE TOO 0 IS NO ACCEPT WITHOUT THE CODE OF ONE.
 *
 * @param idleMinutes     receives Idle-Timeout in minutes, rounded up; untouched when the reply has
 *                        none.
 * @param sessionMinutes  receives Session-Timeout, likewise.
 */
LANYARD_API int radMschapv2AndGetAttributes(const char *userName, const char *password,
                                            uint32_t *idleMinutes, uint32_t *sessionMinutes);

/**
 * Entry points of the command-line programs: they parse the arguments, start the library from the
 * file of -f or "/var/radius.conf", and run one method. The library stays started.
 *
 * @param argc  number of arguments, program name included.
 * @param argv  the arguments: [-v] [-f confFile] username password; -v is accepted and ignored.
 * @return the method's result; -1 for a usage error, a missing option value or a failed start.
 */
LANYARD_API int radAuthSampleMain(int argc, char *argv[]);

/** As radAuthSampleMain(), over radAuthCheckAllServer(): it says what went wrong at level 128 only.
 */
LANYARD_API int radAuthSampleMainCheckAllServer(int argc, char *argv[], int32_t *results);

/** As radAuthSampleMain(), over radAuthAndGetAttributes(). */
LANYARD_API int radAuthSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                               uint32_t *sessionMinutes);

/** As radAuthSampleMain(), over radChapRespMake() and radChapAuth(). */
LANYARD_API int radChapSampleMain(int argc, char *argv[]);

/**
 * As radAuthSampleMain(), over radChapRespMake() and radChapAuthAndGetAttributes(). All but a
 * missing option value is told at level 128.
 */
LANYARD_API int radChapSampleMainCaptivePortal(int argc, char *argv[], int *idleMinutes,
                                               int *sessionMinutes);

/** As radAuthSampleMain(), over radMschap(). */
LANYARD_API int radMschapSampleMain(int argc, char *argv[]);

/** As radAuthSampleMain(), over radMschapAndGetAttributes(). */
LANYARD_API int radMschapSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                                 uint32_t *sessionMinutes);

/** As radAuthSampleMain(), over radMschapv2(), WHOSE 0 IS NO ACCEPT WITHOUT THE CODE OF ONE. */
LANYARD_API int radMschapv2SampleMain(int argc, char *argv[]);

/** As radAuthSampleMain(), over radMschapv2AndGetAttributes(), WHOSE 0 IS NO ACCEPT WITHOUT THE CODE
 * OF ONE. */
LANYARD_API int radMschapv2SampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                                   uint32_t *sessionMinutes);

/** As radAuthSampleMain(), over radAcct(): [-v] [-f confFile] [-s status]; the status is 0 without
 * -s. */
LANYARD_API int radAcctSampleMain(int argc, char *argv[]);

/** Does nothing. @return 0. */
LANYARD_API int radAuthSampleInit(void);

/** Does nothing. @return 0. */
LANYARD_API int radChapSampleInit(void);

/** Does nothing. @return 0. */
LANYARD_API int radMschapSampleInit(void);

/** Does nothing. @return 0. */
LANYARD_API int radAcctSampleInit(void);

#ifdef __cplusplus
}
#endif

#endif
