/**
 * @file
 * Entry points of the command-line programs: each is a main() over one call of methods.h.
 *
 *     uint32_t idleMinutes = 0;
 *     uint32_t sessionMinutes = 0;
 *     if (radAuthSampleMainCaptivePortal(argc, argv, &idleMinutes, &sessionMinutes) != 0) {
 *         return 1;
 *     }
 *     printf("idle %u, session %u minutes\n", idleMinutes, sessionMinutes);
 *     return 0;
 *
 * Every radXxxSampleMain() takes the arguments of main(): [-v] [-f FILE] USER PASSWORD, where -v is
 * accepted and ignored. It starts the library from FILE, or from "/var/radius.conf", calls the
 * function that it is named for, and leaves the library started. A usage error, a missing value of
 * an option and a failed start return -1. The first prints a line to standard output, the others
 * log at level 8.
 *
 * Threads: they use getopt() and belong to one thread.
 */
#ifndef LANYARD_RADIUS_SAMPLE_H
#define LANYARD_RADIUS_SAMPLE_H

#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Logs in with radAuth() (PAP).
 *
 * @param argc  number of arguments, the program's name included.
 * @param argv  the arguments, as above.
 * @return the result of radAuth(); -1 as above.
 */
LANYARD_API int radAuthSampleMain(int argc, char *argv[]);

/**
 * Logs in with radAuthCheckAllServer(). Logs at level 128 alone, usage errors too; string
 * attributes of the last reply go to standard output.
 *
 * @param argc     number of arguments.
 * @param argv     the arguments, as above.
 * @param results  as for radAuthCheckAllServer().
 * @return the result of radAuthCheckAllServer(); -1 as above.
 */
LANYARD_API int radAuthSampleMainCheckAllServer(int argc, char *argv[], int32_t *results);

/**
 * Logs in with radAuthAndGetAttributes().
 *
 * @param argc            number of arguments.
 * @param argv            the arguments, as above.
 * @param idleMinutes     as for radAuthAndGetAttributes().
 * @param sessionMinutes  as for radAuthAndGetAttributes().
 * @return the result of radAuthAndGetAttributes(); -1 as above.
 */
LANYARD_API int radAuthSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                               uint32_t *sessionMinutes);

/**
 * Logs in with radChapAuth(), with a random challenge and the response of radChapRespMake() to it.
 *
 * @param argc  number of arguments.
 * @param argv  the arguments, as above; at most 64 characters of name and 48 of password.
 * @return the result of radChapAuth(); -1 as above.
 */
LANYARD_API int radChapSampleMain(int argc, char *argv[]);

/**
 * Logs in with radChapAuthAndGetAttributes(), as radChapSampleMain(). Logs at level 128, but a
 * missing value of an option at level 8.
 *
 * @param argc            number of arguments.
 * @param argv            the arguments, as for radChapSampleMain().
 * @param idleMinutes     as for radChapAuthAndGetAttributes().
 * @param sessionMinutes  as for radChapAuthAndGetAttributes().
 * @return the result of radChapAuthAndGetAttributes(); -1 as above.
 */
LANYARD_API int radChapSampleMainCaptivePortal(int argc, char *argv[], int *idleMinutes,
                                               int *sessionMinutes);

/**
 * Logs in with radMschap().
 *
 * @param argc  number of arguments.
 * @param argv  the arguments, as above.
 * @return the result of radMschap(); -1 as above.
 */
LANYARD_API int radMschapSampleMain(int argc, char *argv[]);

/**
 * Logs in with radMschapAndGetAttributes().
 *
 * @param argc            number of arguments.
 * @param argv            the arguments, as above.
 * @param idleMinutes     as for radMschapAndGetAttributes().
 * @param sessionMinutes  as for radMschapAndGetAttributes().
 * @return the result of radMschapAndGetAttributes(); -1 as above.
 */
LANYARD_API int radMschapSampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                                 uint32_t *sessionMinutes);

/**
 * Logs in with radMschapv2(), WHOSE 0 IS NO ACCEPT WITHOUT THE CODE OF ONE.
 *
 * @param argc  number of arguments.
 * @param argv  the arguments, as above.
 * @return the result of radMschapv2(); -1 as above.
 */
LANYARD_API int radMschapv2SampleMain(int argc, char *argv[]);

/**
 * Logs in with radMschapv2AndGetAttributes(), WHOSE 0 IS NO ACCEPT WITHOUT THE CODE OF ONE.
 *
 * @param argc            number of arguments.
 * @param argv            the arguments, as above.
 * @param idleMinutes     as for radMschapv2AndGetAttributes().
 * @param sessionMinutes  as for radMschapv2AndGetAttributes().
 * @return the result of radMschapv2AndGetAttributes(); -1 as above.
 */
LANYARD_API int radMschapv2SampleMainCaptivePortal(int argc, char *argv[], uint32_t *idleMinutes,
                                                   uint32_t *sessionMinutes);

/**
 * Sends an accounting record with radAcct().
 *
 * @param argc  number of arguments.
 * @param argv  the arguments: [-v] [-f FILE] [-s STATUS]; the status is 0 without -s.
 * @return the result of radAcct(); -1 as above.
 */
LANYARD_API int radAcctSampleMain(int argc, char *argv[]);

/**
 * Does nothing.
 *
 * @return 0.
 */
LANYARD_API int radAuthSampleInit(void);

/**
 * Does nothing.
 *
 * @return 0.
 */
LANYARD_API int radChapSampleInit(void);

/**
 * Does nothing.
 *
 * @return 0.
 */
LANYARD_API int radMschapSampleInit(void);

/**
 * Does nothing.
 *
 * @return 0.
 */
LANYARD_API int radAcctSampleInit(void);

#ifdef __cplusplus
}
#endif

#endif
