/**
 * @file
 * Start-up and shutdown, the library's memory, options, per-attribute hooks, version.
 *
 *     radLibVersion();                                  // prints "Lanyard RADIUS 2.0.0"
 *     radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 1);  // before the first login
 *     if (radLibInit(radLibDefConf()) != 0) {
 *         return 1;  // the log has the file, the line and the reason
 *     }
 *     // from here on any number of threads may send requests: methods.h, engine.h
 *     radLibExit();
 *
 * Threads: radOptionSet() and radOptionGet() may be called from any thread. Everything else here
 * belongs to the one thread that starts and stops the library, while no request is in flight.
 */
#ifndef LANYARD_RADIUS_FRAME_H
#define LANYARD_RADIUS_FRAME_H

#include <stdint.h>

/** Marks what the shared library exports. */
#if defined(__GNUC__)
#define LANYARD_API __attribute__((visibility("default")))
#else
#define LANYARD_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct RadPair;
struct RadPacket;

/** Bytes of the partition that radLibInit() creates. */
#define RAD_PARTITION_SIZE 102400

/**
 * The partition that all memory of the library comes from; 0, the process heap, while there is
 * none. Read it only.
 *
 * Free a buffer that the library returned with `palMemPartFree(radMemPartId, buffer)` of
 * `palcore.h`.
 */
extern LANYARD_API uint32_t radMemPartId;

/**
 * Makes the library use the caller's partition. Call it before radLibInit(), which keeps an
 * existing partition.
 *
 * @param partition  id of the caller's partition. It stays the caller's and is never destroyed
 *                   here. 0: the library forgets its partition without destroying it.
 * @return 0.
 */
LANYARD_API int radiusPartIdInit(uint32_t partition);

/**
 * Creates the library's partition "radiusPartition" unless there is one already.
 *
 * @param size  bytes.
 * @return 0, also when a partition was there; -1 when it could not be created.
 */
LANYARD_API int radMemInit(uint32_t size);

/**
 * Destroys the partition that the library created. Does nothing once the program has brought one of
 * its own. Call radDeconfigure() first, as the configuration and the dictionary are in the
 * partition; radLibExit() calls both.
 *
 * @return 0.
 */
LANYARD_API int radMemCleanUp(void);

/**
 * Sets up MD5 in the OS layer. radLibInit() calls it.
 *
 * @return 0.
 */
LANYARD_API int radCryptoInit(void);

/**
 * Writes the line "Lanyard RADIUS 2.0.0" to standard output.
 *
 * @return 0.
 */
LANYARD_API int radLibVersion(void);

/**
 * Returns the path of the default configuration file, "/var/radius.conf".
 *
 * @return a constant, which the caller neither changes nor frees.
 */
LANYARD_API const char *radLibDefConf(void);

/**
 * Encodes one attribute of a request in place of the library (RFC 2865 section 5).
 *
 * Called twice for every attribute, in the thread that sends: once to measure, once to pack. It
 * must return the same length both times.
 *
 * @param value   where to write the value; NULL while measuring.
 * @param length  where to write the attribute's length, one byte: bytes of the value + 2, or 0 to
 *                leave the attribute out. `length[-1]` is the type, while measuring too.
 * @param pair    the attribute.
 * @param secret  the shared secret; NULL while measuring.
 * @param packet  the request as packed so far; NULL while measuring.
 * @return 0 when the attribute is encoded; 1 to have the library encode it; any other value ends
 *         the request, which returns that value.
 */
typedef int (*RadPackHook)(uint8_t *value, uint8_t *length, const struct RadPair *pair,
                           const char *secret, struct RadPacket *packet);

/**
 * Looks at one attribute of a reply before the library does, in the thread that waits for it.
 *
 * @param pair     the attribute.
 * @param list     all attributes of the reply.
 * @param reply    the reply packet.
 * @param request  the request that it answers.
 * @param secret   the shared secret.
 * @return 0 when the attribute is accepted; 1 to have radPairUnpackDefault() decide; any other
 *         value refuses the reply, and the request returns that value.
 */
typedef int (*RadUnpackHook)(struct RadPair *pair, struct RadPair *list, struct RadPacket *reply,
                             struct RadPacket *request, const char *secret);

/** The per-attribute hooks. NULL in a slot is as a hook that returns 1. */
typedef struct RadFuncTbl {
    RadPackHook radPackHook;     /**< asked for each attribute of a request */
    RadUnpackHook radUnpackHook; /**< asked for each attribute of a reply */
} RadFuncTbl;

/** The installed hooks, the library's own copy; NULL while there are none. Read it only. */
extern LANYARD_API RadFuncTbl *pRadFuncTbl;

/**
 * Installs hooks in place of earlier ones. They stay installed across radLibExit().
 *
 * @param table  the hooks, copied.
 * @return 0; -1 for NULL, with the earlier hooks left in place.
 */
LANYARD_API int radFuncTblInstall(const RadFuncTbl *table);

/**
 * Removes the hooks.
 *
 * @return 0.
 */
LANYARD_API int radFuncTblUninstall(void);

/**
 * Starts the library: creates its partition, sets up MD5, reads the configuration file.
 *
 * After a success, further calls do nothing and return 0 until radLibExit().
 *
 * @param confFile  path of a configuration file (docs/configuration.md); NULL when the program
 *                  configures the library itself (conf.h).
 * @return 0; -1 when radConfigure() refuses the file, which logs the reason. A later call tries
 *         again.
 */
LANYARD_API int radLibInit(const char *confFile);

/**
 * Frees the configuration, the dictionary and the library's partition. All lists and buffers that
 * the library returned are gone with the partition.
 *
 * @return 0.
 */
LANYARD_API int radLibExit(void);

/**
 * Options of the whole library. All are 0 until the program sets them.
 */
enum {
    /**
     * Not 0: MS-CHAPv2 uses the published SHA-1 for its challenge hash (RFC 2759 section 8.2), as
     * standard servers expect. 0: this library's own SHA1Init(), which standard servers refuse.
     */
    RAD_OPTION_STANDARD_SHA1 = 0,
    /**
     * Not 0: MS-CHAP and MS-CHAPv2 compute the NT-Response in the process, with no program and no
     * file. 0: they run the device's program (radMschapNtResponse()). Set it unless the device has
     * a program of its own that computes something else.
     */
    RAD_OPTION_BUILTIN_NT_RESPONSE,
    /**
     * Not 0: all requests are resilient, as those of a loop (loop.h): servers that do not answer are
     * remembered and asked last, waits follow RFC 5080 section 2.2.1, what is no valid reply is
     * ignored, and a State goes to the server that gave it. 0: each server of the list is asked in
     * turn, and the first datagram ends the wait for it. A library without the loop
     * (LANYARD_MINIMAL) asks them so whatever this is.
     */
    RAD_OPTION_RESILIENT,
    /**
     * Seconds for which a server that does not answer is asked last, for resilient requests. 0: 60
     * seconds. Negative: it is not remembered.
     */
    RAD_OPTION_DEAD_TIME,
    /**
     * Not 0: after that time a Status-Server packet (RFC 5997) asks whether the server is back, in
     * loops. 0: one request does.
     */
    RAD_OPTION_STATUS_SERVER,
    /**
     * Positive: a reply to an Access-Request counts only with a valid Message-Authenticator (RFC
     * 3579 section 3.2), which is the answer to replies that were forged by a collision of MD5
     * (docs/security.md). 0: resilient requests with an EAP-Message ask that of their replies.
     * Negative: none does; one that is there has to be valid in any case.
     */
    RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR,
    /**
     * How many requests of the EAP relay may wait for servers at a time (radEapInit()). 0 and 1: one
     * after the other.
     */
    RAD_OPTION_EAP_IN_FLIGHT,
    RAD_OPTION_COUNT /**< number of options, not an option */
};

/**
 * Sets an option. It counts for requests that start afterwards.
 *
 * @param option  one of the RAD_OPTION_ values.
 * @param value   its new value.
 * @return 0; -1 for an unknown option.
 */
LANYARD_API int radOptionSet(int option, int value);

/**
 * Returns an option.
 *
 * @param option  one of the RAD_OPTION_ values.
 * @return its value; -1 for an unknown option.
 */
LANYARD_API int radOptionGet(int option);

#ifdef __cplusplus
}
#endif

#endif
