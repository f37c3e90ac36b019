/**
 * @file
 * The attribute dictionary: names and value types of attributes, and names of their values.
 *
 *     radDictLoad(NULL);  // the built-in table
 *     radDictAddAttr("Door-Number 250 integer");
 *     radDictAddValue("Door-Number Main-Entrance 1");
 *     const RadDictAttr *attribute = radDictGetAttr(250);
 *     const RadDictValue *value = radDictGetVal(1, "Door-Number");
 *     if (attribute != NULL && value != NULL) {
 *         printf("%s = %s\n", attribute->name, value->valueName);
 *     }
 *     radDictUnload();
 *
 * There is one dictionary for the process. radLibInit() with a file, radConfigure() and
 * radiusMgmtInit() load it. An attribute that it does not know can be neither sent nor received.
 *
 * Threads: change it only while the library is being configured. Afterwards any number of threads
 * may look things up.
 */
#ifndef LANYARD_RADIUS_DICT_H
#define LANYARD_RADIUS_DICT_H

#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Longest attribute name, in characters. */
#define RAD_NAME_MAX 32

/** Value types of attributes (RFC 2865 section 5); types 1 to 3 are 32-bit numbers. */
enum { RAD_TYPE_STRING = 0, RAD_TYPE_INTEGER = 1, RAD_TYPE_IPADDR = 2, RAD_TYPE_DATE = 3 };

/** One attribute. */
typedef struct RadDictAttr {
    char name[RAD_NAME_MAX + 1]; /**< for example "User-Name" */
    int32_t attrNum; /**< attribute number as in the dictionary, not checked for its range */
    int32_t type;    /**< one of the RAD_TYPE_ values */
    struct RadDictAttr *next; /**< the library's */
} RadDictAttr;

/** One named value of an attribute. */
typedef struct RadDictValue {
    char attrName[RAD_NAME_MAX + 1]; /**< the attribute that the value belongs to */
    char valueName[35];              /**< for example "Framed-User" */
    int32_t value;                   /**< its number */
    struct RadDictValue *next;       /**< the library's */
} RadDictValue;

/**
 * Adds an attribute. It hides an earlier one of the same number.
 *
 * @param line  name, number and type ("string", "integer", "ipaddr", "date"), separated by blanks
 *              or tabs. What follows them is ignored.
 * @return 0; -1 with the reason logged at level 8. Out of memory is logged at level 4, or not at
 *         all when there is none for a copy of the line.
 */
LANYARD_API int radDictAddAttr(const char *line);

/**
 * Adds a named value. It hides an earlier one of the same attribute and number. The attribute need
 * not exist.
 *
 * @param line  attribute name, value name and number, separated by blanks or tabs.
 * @return as radDictAddAttr().
 */
LANYARD_API int radDictAddValue(const char *line);

/**
 * Replaces the dictionary.
 *
 * @param path  a dictionary file (docs/configuration.md); NULL for the built-in table.
 * @return 0; -1 with the line or the system's reason logged at level 8. The lines before a bad one
 *         stay loaded.
 */
LANYARD_API int radDictLoad(const char *path);

/**
 * Empties the dictionary.
 *
 * @return 0.
 */
LANYARD_API int radDictUnload(void);

/**
 * Looks up an attribute by its number.
 *
 * @param attrNum  attribute number.
 * @return the attribute, which belongs to the dictionary and is valid until the next load or
 *         unload; NULL when there is none.
 */
LANYARD_API const RadDictAttr *radDictGetAttr(int32_t attrNum);

/**
 * Looks up the name of a number.
 *
 * @param value     the number.
 * @param attrName  name of the attribute, case-sensitive.
 * @return the named value, which belongs to the dictionary and is valid until the next load or
 *         unload; NULL when there is none.
 */
LANYARD_API const RadDictValue *radDictGetVal(int32_t value, const char *attrName);

#ifdef __cplusplus
}
#endif

#endif
