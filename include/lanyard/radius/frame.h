/**
 * @file
 * The frame of the library: memory partition, per-attribute hooks, version, start-up and shutdown.
 *
 * Nothing here locks: these calls belong to the one thread that starts and stops the library.
 */
#ifndef LANYARD_RADIUS_FRAME_H
#define LANYARD_RADIUS_FRAME_H

#include <stdint.h>

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

/** Size in octets of the partition that radLibInit() creates. */
#define RAD_PARTITION_SIZE 102400

/**
 * The partition that all memory of the library comes from; 0 while there is none.
 *
 * A buffer that the library hands out is released with `palMemPartFree(radMemPartId, buffer)`.
 */
extern LANYARD_API uint32_t radMemPartId;

/**
 * Makes the library use the caller's partition. Call it before radLibInit(), which keeps an
 * existing partition.
 *
 * @param partition  handle of the caller's partition, which stays the caller's and is never
 *                   destroyed here; 0 makes the library forget its partition without destroying it.
 * @return 0.
 */
LANYARD_API int radiusPartIdInit(uint32_t partition);

/**
 * Creates the library's partition "radiusPartition" unless there is one already.
 *
 * @param size  octets.
 * @return 0, also when a partition was there; -1 when it could not be created.
 */
LANYARD_API int radMemInit(uint32_t size);

/**
 * Destroys the partition that the library created. It does not once the host has given it a
 * partition. The configuration and the dictionary go first (radDeconfigure()); radLibExit() does
 * both.
 * @return 0.
 */
LANYARD_API int radMemCleanUp(void);

/**
 * Sets up MD5 in the crypto layer.
 * @return 0.
 */
LANYARD_API int radCryptoInit(void);

/**
 * Writes the line "Lanyard RADIUS 2.0.0" to standard output.
 * @return 0.
 */
LANYARD_API int radLibVersion(void);

/**
 * @return the path of the default configuration file, "/var/radius.conf": a constant that the
 *         caller neither changes nor frees.
 */
LANYARD_API const char *radLibDefConf(void);

/**
 * Encodes one attribute of a request in place of the library (RFC 2865 section 5).
 *
 * It is called twice for every attribute: once to measure and once to pack, and must come to the
 * same length both times.
 *
 * @param value   where the value octets go; NULL while the packer measures.
 * @param length  where the attribute's length octet goes: value octets + 2, or 0 to leave the
 *                attribute out. The type octet stands in front of it, `length[-1]`, while the
 *                packer measures too.
 * @param pair    the attribute.
 * @param secret  the shared secret; NULL while measuring.
 * @param packet  the request as packed so far; NULL while measuring.
 * @return 0 handled; 1 not handled, the library encodes; anything else ends the request with that
 *         value.
 */
typedef int (*RadPackHook)(uint8_t *value, uint8_t *length, const struct RadPair *pair,
                           const char *secret, struct RadPacket *packet);

/**
 * Looks at one attribute of a reply before the library does.
 *
 * @param pair     the attribute.
 * @param list     the whole reply list.
 * @param reply    the reply packet.
 * @param request  the request that it answers.
 * @param secret   the shared secret.
 * @return 0 handled; 1 not handled, radPairUnpackDefault() runs; anything else rejects the reply
 *         with that value.
 */
typedef int (*RadUnpackHook)(struct RadPair *pair, struct RadPair *list, struct RadPacket *reply,
                             struct RadPacket *request, const char *secret);

/** The per-attribute hooks. An empty slot behaves as a hook that answers 1. */
typedef struct RadFuncTbl {
    RadPackHook radPackHook;
    RadUnpackHook radUnpackHook;
} RadFuncTbl;

/** The installed hooks: the library's own copy, or NULL while none are installed. Read it only. */
extern LANYARD_API RadFuncTbl *pRadFuncTbl;

/**
 * Installs a copy of the caller's hooks in place of earlier ones. Hooks stay installed across
 * radLibExit().
 *
 * @param table  the hooks; it need not outlive the call.
 * @return 0, or -1 for NULL, which leaves the earlier hooks in place.
 */
LANYARD_API int radFuncTblInstall(const RadFuncTbl *table);

/**
 * Removes the hooks.
 * @return 0.
 */
LANYARD_API int radFuncTblUninstall(void);

/**
 * Starts the library: partition, crypto layer and, given a file, the configuration.
 *
 * Once it has succeeded, further calls return 0 and do nothing until radLibExit().
 *
 * @param confFile  path of a configuration file (docs/configuration.md), or NULL when the caller
 *                  configures the library itself.
 * @return 0; -1 when the file could not be read or is not usable, with the reason in the log of
 *         radConfigure(). A later call tries again.
 */
LANYARD_API int radLibInit(const char *confFile);

/**
 * Drops the configuration, the dictionary and the library's partition, and with the partition every
 * reply list and buffer that a caller still holds from it.
 * @return 0.
 */
LANYARD_API int radLibExit(void);

/**
 * Options of the library as a whole; an addition of this library. They are 0 unless a host sets
 * them, and any thread may set and read them.
 */
enum {
    /**
     * Not 0: MS-CHAPv2 takes its challenge hash with the published SHA-1 (RFC 2759 section 8.2), as
     * standard servers expect it. 0: with this library's own SHA1Init() family, which standard
     * servers refuse.
     */
    RAD_OPTION_STANDARD_SHA1 = 0,
    /**
     * Not 0: MS-CHAP and MS-CHAPv2 compute the NT-Response in the process, with no program and no
     * file. 0: with the device's program (radMschapNtResponse()). Set it wherever the device has no
     * program of its own that computes something else.
     */
    RAD_OPTION_BUILTIN_NT_RESPONSE,
    RAD_OPTION_COUNT /**< number of options; no option itself */
};

/**
 * @param option  one of the RAD_OPTION_ values.
 * @param value   its new value.
 * @return 0; -1 for an unknown option.
 */
LANYARD_API int radOptionSet(int option, int value);

/**
 * @param option  one of the RAD_OPTION_ values.
 * @return its value; -1 for an unknown option.
 */
LANYARD_API int radOptionGet(int option);

#ifdef __cplusplus
}
#endif

#endif
