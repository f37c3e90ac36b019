/**
 * @file
 * Crypto library set-up, as the device's OS layer offers it.
 */
#ifndef LANYARD_PLATFORM_CIPH_H
#define LANYARD_PLATFORM_CIPH_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes MD5 (`MD5_Init`, `MD5_Update`, `MD5_Final` of <openssl/md5.h>) usable.
 * May be called any number of times, from any thread.
 *
 * @return 0, or -1 when the crypto library offers no MD5.
 */
int ciphMD5Init(void);

#ifdef __cplusplus
}
#endif

#endif
