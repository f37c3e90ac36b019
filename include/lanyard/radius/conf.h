/**
 * @file
 * The configuration: servers, default time-out and retries, dictionary path, and the file that sets
 * them.
 *
 * One process-wide configuration, without locks: change it only from the thread that configures the
 * library, and not while requests are in flight.
 */
#ifndef LANYARD_RADIUS_CONF_H
#define LANYARD_RADIUS_CONF_H

#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Most servers of one kind. */
#define RAD_SERVERS_MAX 8

/** Kinds of server. */
enum { RAD_SERVER_AUTH = 0, RAD_SERVER_ACCT = 1 };

/** Option numbers of radConfGet(). */
enum {
    RAD_CONF_AUTH_SERVERS = 0, /**< RadServer[RAD_SERVERS_MAX] */
    RAD_CONF_ACCT_SERVERS = 1, /**< RadServer[RAD_SERVERS_MAX] */
    RAD_CONF_DICTIONARY = 2,   /**< path, NUL-terminated text */
    RAD_CONF_TIMEOUT = 3,      /**< int32_t, seconds */
    RAD_CONF_RETRIES = 4       /**< int32_t, sends after the first */
};

/** One configured server. The texts belong to the configuration. */
typedef struct RadServer {
    char *host;      /**< name or dotted address as given; NULL marks a free slot */
    uint16_t port;   /**< UDP port; 65535 in a cleared slot */
    int32_t timeout; /**< seconds; -1 for the default */
    int32_t retries; /**< sends after the first; -1 for the default */
    char *secret;    /**< shared secret */
    char *extra;     /**< NAS-Identifier to send in place of NAS-IP-Address; NULL for none */
    int32_t rowKey;  /**< database row identity, first half; -1 when unset */
    int32_t rowId;   /**< database row id; -1 when unset */
} RadServer;

/**
 * @param index  one of the RAD_CONF_ values.
 * @return pointer to the option's value in the shape that the RAD_CONF_ value names, owned by the
 *         configuration; NULL when it is unset (logged at level 128) or the index is unknown.
 */
LANYARD_API void *radConfGet(uint32_t index);

/**
 * @param type  RAD_SERVER_AUTH or RAD_SERVER_ACCT.
 * @return number of configured servers of that kind; -1 for another type.
 */
LANYARD_API int radConfGetNumServers(int type);

/**
 * Sets the default time-out. The old value goes first: a refused text leaves the option unset.
 *
 * @param text  seconds, decimal, starting with a digit.
 * @return 0 or -1.
 */
LANYARD_API int radConfSetTimeout(const char *text);

/**
 * Sets the default retry count. The old value goes first: a refused text leaves the option unset.
 *
 * @param text  number of sends after the first, decimal, starting with a digit.
 * @return 0 or -1.
 */
LANYARD_API int radConfSetRetries(const char *text);

/**
 * Loads a dictionary file and remembers its path. It can be set once, until radConfDelDict().
 *
 * @param path  the file.
 * @return 0; -1 when the file does not load or a path is set already.
 */
LANYARD_API int radConfSetDict(const char *path);

/**
 * Sets the list of authentication servers, once, until radConfDelAuthServ().
 *
 * @param text  entries host[:port[:timeout[:retries]]]:secret[:nas-identifier], separated by
 *              commas, blanks or tabs. The NAS-Identifier needs port, time-out and retries before
 *              it.
 * @return 0; -1 for the empty text, when a list is set already, or when an entry is refused
 *         (entries before it stay).
 */
LANYARD_API int radConfSetAuthServ(const char *text);

/** As radConfSetAuthServ(), for accounting servers, which have no NAS-Identifier. */
LANYARD_API int radConfSetAcctServ(const char *text);

/**
 * Adds the entries of a server list to the servers that are there.
 *
 * @param text  as for radConfSetAuthServ().
 * @param type  RAD_SERVER_AUTH or RAD_SERVER_ACCT.
 * @return 0; -1 when an entry is refused (entries before it stay); a bad number is logged at level
 *         8.
 */
LANYARD_API int radConfSetServers(const char *text, uint32_t type);

/**
 * Adds one authentication server in the lowest free slot.
 *
 * @param host     name or dotted address, copied.
 * @param port     UDP port; below 1 for the port of "radius" in the services database, or 1812.
 * @param timeout  seconds; negative for the default.
 * @param retries  sends after the first; negative for the default.
 * @param secret   shared secret, copied.
 * @param extra    NAS-Identifier, copied; NULL for none.
 * @return 0; -1 when eight servers are configured (logged at level 8) or there is no memory for the
 *         host. A secret or NAS-Identifier that there is no memory for is missing from then on. The
 *         new server is logged at level 128, its secret included.
 */
LANYARD_API int radConfAddAuthServ(const char *host, int port, int timeout, int retries,
                                   const char *secret, const char *extra);

/** As radConfAddAuthServ(), for an accounting server: "radacct" or port 1813. */
LANYARD_API int radConfAddAcctServ(const char *host, int port, int timeout, int retries,
                                   const char *secret);

/**
 * Deletes all authentication servers.
 * @return 0.
 */
LANYARD_API int radConfDelAuthServ(void);

/**
 * Deletes all accounting servers.
 * @return 0.
 */
LANYARD_API int radConfDelAcctServ(void);

/**
 * Deletes one authentication server. When none has this host, the last of the eight slots is the
 * one that is cleared.
 *
 * @param host  exact text as configured.
 * @return 0, also when no server is configured; -1 for NULL.
 */
LANYARD_API int radConfDelAuthServer(const char *host);

/**
 * Records the database row of an authentication server. When none has this host, the last of the
 * eight slots takes it.
 *
 * @param host      exact text as configured.
 * @param reserved  ignored.
 * @param rowKey    first half of the row identity.
 * @param rowId     second half.
 * @return 0, also when no server is configured; -1 for NULL.
 */
LANYARD_API int radAuthServRowIdSet(const char *host, int reserved, int32_t rowKey, int32_t rowId);

/**
 * Deletes the authentication server of a database row. When none matches, the last of the eight
 * slots is the one that is cleared.
 *
 * @param rowKey  first half of the row identity.
 * @param rowId   second half.
 * @return 0, also when no server is configured; -1 for a negative `rowKey`.
 */
LANYARD_API int radConfDelAuthServByRowId(int32_t rowKey, int32_t rowId);

/** Unsets the default time-out. @return 0. */
LANYARD_API int radConfDelTimeout(void);

/** Unsets the default retry count. @return 0. */
LANYARD_API int radConfDelRetries(void);

/** Unsets the dictionary path and unloads the dictionary. @return 0. */
LANYARD_API int radConfDelDict(void);

/**
 * Empties the configuration and the dictionary.
 * @return 0, or -1 when an option could not be deleted.
 */
LANYARD_API int radDeconfigure(void);

/** Logs every authentication server, its secret included, at level 128. */
LANYARD_API void radConfAuthServList(void);

/**
 * Replaces the whole configuration by a file's (docs/configuration.md).
 *
 * Before the file is read the built-in dictionary is loaded, the time-out set to 10 seconds and the
 * retry count to 3.
 *
 * @param path  the file.
 * @return 0 when the file was read to its end and radConfAssert() accepts the result; else -1, with
 *         the file, the line and the line's text, secrets included, logged at level 8, or the
 *         message of radConfAssert(). What stood before a bad line stays.
 */
LANYARD_API int radConfigure(const char *path);

/**
 * Checks that requests can be sent: an authentication server, default time-out and retries, and a
 * secret for every server.
 *
 * @return 0, or -1 with the first thing that is missing logged at level 8.
 */
LANYARD_API int radConfAssert(void);

#ifdef __cplusplus
}
#endif

#endif
