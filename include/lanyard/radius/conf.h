/**
 * @file
 * The configuration: servers, default time-out and retries, the dictionary, and the file that sets
 * them all.
 *
 * radLibInit() reads the file. A program that configures the library itself:
 *
 *     radLibInit(NULL);
 *     radDictLoad(NULL);  // the built-in dictionary
 *     radConfSetTimeout("10");
 *     radConfSetRetries("3");
 *     radConfAddAuthServ("192.0.2.10", 1812, -1, -1, "secret", NULL);
 *     radConfAddAcctServ("192.0.2.10", 1813, -1, -1, "secret");
 *     if (radConfAssert() != 0) {
 *         return 1;  // the log says what is missing
 *     }
 *     // requests: methods.h, engine.h
 *     radLibExit();
 *
 * Threads: there is one configuration for the process, without locks. Change it from one thread,
 * and not while requests are in flight.
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
    RAD_CONF_DICTIONARY = 2,   /**< path, char[] */
    RAD_CONF_TIMEOUT = 3,      /**< int32_t, seconds */
    RAD_CONF_RETRIES = 4       /**< int32_t, sends after the first */
};

/** One configured server. The texts are the configuration's. */
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
 * Returns the value of an option.
 *
 * @param index  one of the RAD_CONF_ values.
 * @return the value, of the type that the RAD_CONF_ value names. It belongs to the configuration
 *         and is valid until that changes. NULL when the option is unset (logged at level 128) or
 *         the index unknown.
 */
LANYARD_API void *radConfGet(uint32_t index);

/**
 * Returns the number of configured servers.
 *
 * @param type  RAD_SERVER_AUTH or RAD_SERVER_ACCT.
 * @return the number of that kind; -1 for another type.
 */
LANYARD_API int radConfGetNumServers(int type);

/**
 * Sets the default time-out. Clears the option before parsing; on failure it stays unset. Logged at
 * level 128.
 *
 * @param text  seconds, decimal, starting with a digit.
 * @return 0; -1 for other text, or when memory is exhausted (logged at level 4).
 */
LANYARD_API int radConfSetTimeout(const char *text);

/**
 * Sets the default retry count. Clears the option before parsing; on failure it stays unset. Logged
 * at level 128.
 *
 * @param text  number of sends after the first, decimal, starting with a digit.
 * @return 0; -1 for other text, or when memory is exhausted (logged at level 4).
 */
LANYARD_API int radConfSetRetries(const char *text);

/**
 * Loads a dictionary file and keeps its path. To set another one, call radConfDelDict() first.
 *
 * @param path  the file (docs/configuration.md).
 * @return 0; -1 when a path is set already or radDictLoad() refuses the file.
 */
LANYARD_API int radConfSetDict(const char *path);

/**
 * Sets the list of authentication servers. To set another one, call radConfDelAuthServ() first.
 *
 * @param text  entries host[:port[:timeout[:retries]]]:secret[:nas-identifier], separated by
 *              commas, blanks or tabs. A NAS-Identifier needs port, time-out and retries before it.
 * @return 0; -1 for the empty text, when a list is set already, or as radConfSetServers().
 */
LANYARD_API int radConfSetAuthServ(const char *text);

/**
 * Sets the list of accounting servers. To set another one, call radConfDelAcctServ() first.
 *
 * @param text  as for radConfSetAuthServ(); a NAS-Identifier is ignored.
 * @return as radConfSetAuthServ().
 */
LANYARD_API int radConfSetAcctServ(const char *text);

/**
 * Adds the entries of a server list to the configured servers.
 *
 * @param text  as for radConfSetAuthServ().
 * @param type  RAD_SERVER_AUTH or RAD_SERVER_ACCT.
 * @return 0; -1 when an entry is refused or memory is exhausted, with the entries before it added.
 *         A bad number is logged at level 8.
 */
LANYARD_API int radConfSetServers(const char *text, uint32_t type);

/**
 * Adds one authentication server in the lowest free slot.
 *
 * @param host     name or dotted IPv4 address, copied.
 * @param port     UDP port; below 1 for the port of "radius" in the services database, else 1812.
 * @param timeout  seconds; negative for the default.
 * @param retries  sends after the first; negative for the default.
 * @param secret   shared secret, copied.
 * @param extra    NAS-Identifier, copied; NULL for none.
 * @return 0, with the server and its secret logged at level 128; -1 when eight servers are
 *         configured (logged at level 8) or there is no memory for the host. When there is none for
 *         secret or NAS-Identifier, the server is added without it.
 */
LANYARD_API int radConfAddAuthServ(const char *host, int port, int timeout, int retries,
                                   const char *secret, const char *extra);

/**
 * Adds one accounting server.
 *
 * @param host     as for radConfAddAuthServ().
 * @param port     UDP port; below 1 for the port of "radacct" in the services database, else 1813.
 * @param timeout  seconds; negative for the default.
 * @param retries  sends after the first; negative for the default.
 * @param secret   shared secret, copied.
 * @return as radConfAddAuthServ().
 */
LANYARD_API int radConfAddAcctServ(const char *host, int port, int timeout, int retries,
                                   const char *secret);

/**
 * Deletes all authentication servers.
 *
 * @return 0.
 */
LANYARD_API int radConfDelAuthServ(void);

/**
 * Deletes all accounting servers.
 *
 * @return 0.
 */
LANYARD_API int radConfDelAcctServ(void);

/**
 * Deletes one authentication server. When none has this host, clears the last of the eight slots.
 * Logged at level 128, with the secret.
 *
 * @param host  the text as configured.
 * @return 0, also when no server is configured; -1 for NULL.
 */
LANYARD_API int radConfDelAuthServer(const char *host);

/**
 * Records the database row of an authentication server. When none has this host, the last of the
 * eight slots gets it. Logged at level 128, with the secret.
 *
 * @param host      the text as configured.
 * @param reserved  ignored.
 * @param rowKey    first half of the row identity.
 * @param rowId     second half.
 * @return 0, also when no server is configured; -1 for NULL.
 */
LANYARD_API int radAuthServRowIdSet(const char *host, int reserved, int32_t rowKey, int32_t rowId);

/**
 * Deletes the authentication server of a database row. When none matches, clears the last of the
 * eight slots. Logged at level 128, with the secret.
 *
 * @param rowKey  first half of the row identity.
 * @param rowId   second half.
 * @return 0, also when no server is configured; -1 for a negative `rowKey`.
 */
LANYARD_API int radConfDelAuthServByRowId(int32_t rowKey, int32_t rowId);

/**
 * Unsets the default time-out.
 *
 * @return 0.
 */
LANYARD_API int radConfDelTimeout(void);

/**
 * Unsets the default retry count.
 *
 * @return 0.
 */
LANYARD_API int radConfDelRetries(void);

/**
 * Unsets the dictionary path and unloads the dictionary.
 *
 * @return 0.
 */
LANYARD_API int radConfDelDict(void);

/**
 * Empties the configuration and the dictionary. Logged at level 128.
 *
 * @return 0; -1 when an option could not be deleted.
 */
LANYARD_API int radDeconfigure(void);

/** Logs every authentication server at level 128, with its secret. */
LANYARD_API void radConfAuthServList(void);

/**
 * Replaces the configuration by that of a file (docs/configuration.md).
 *
 * Before it reads the file, it loads the built-in dictionary and sets the time-out to 10 seconds
 * and the retry count to 3.
 *
 * @param path  the file.
 * @return 0 when the file was read to its end and radConfAssert() accepts the result. -1 otherwise:
 *         logged at level 8 is the file, the line and its text, which may hold secrets, or the
 *         message of radConfAssert(). The lines before a bad one stay in force.
 */
LANYARD_API int radConfigure(const char *path);

/**
 * Checks that requests can be sent: that there is an authentication server, a default time-out and
 * retry count, and a secret for every server.
 *
 * @return 0; -1 with the first thing that is missing logged at level 8.
 */
LANYARD_API int radConfAssert(void);

#ifdef __cplusplus
}
#endif

#endif
