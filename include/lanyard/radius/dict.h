/**
 * @file
 * The attribute dictionary: names and value types of attributes, and names of their values.
 *
 * One process-wide dictionary. It is changed only while the library is being configured; afterwards
 * any number of threads may look things up.
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
    int32_t attrNum; /**< attribute number as written in the dictionary; no range check */
    int32_t type;    /**< one of the RAD_TYPE_ values */
    struct RadDictAttr *next;
} RadDictAttr;

/** One named value of an attribute. */
typedef struct RadDictValue {
    char attrName[RAD_NAME_MAX + 1]; /**< the attribute that the value belongs to */
    char valueName[35];              /**< for example "Framed-User" */
    int32_t value;                   /**< the number that the name stands for */
    struct RadDictValue *next;
} RadDictValue;

/**
 * Adds one attribute; it hides an earlier one of the same number.
 *
 * @param line  name, number and type ("string", "integer", "ipaddr", "date"), separated by blanks
 *              or tabs; anything behind them is ignored.
 * @return 0, or -1 with the reason logged at level 8 (4 when there is no memory for the entry; none
 *         when there is none for a copy of the line).
 */
LANYARD_API int radDictAddAttr(const char *line);

/**
 * Adds one named value; it hides an earlier one of the same attribute and number. The attribute
 * need not exist.
 *
 * @param line  attribute name, value name and number, separated by blanks or tabs.
 * @return as radDictAddAttr().
 */
LANYARD_API int radDictAddValue(const char *line);

/**
 * Replaces the dictionary.
 *
 * @param path  a dictionary file, or NULL for the built-in table.
 * @return 0; -1 with the line or the system's reason logged at level 8. What stood before a bad
 *         line stays loaded.
 */
LANYARD_API int radDictLoad(const char *path);

/**
 * Empties the dictionary.
 * @return 0.
 */
LANYARD_API int radDictUnload(void);

/**
 * @param attrNum  attribute number.
 * @return the attribute, which belongs to the dictionary and lives until the next load or unload;
 *         NULL when there is none.
 */
LANYARD_API const RadDictAttr *radDictGetAttr(int32_t attrNum);

/**
 * @param value     the number.
 * @param attrName  name of the attribute, case-sensitive.
 * @return the named value, which belongs to the dictionary; NULL when there is none or `attrName`
 *         is NULL.
 */
LANYARD_API const RadDictValue *radDictGetVal(int32_t value, const char *attrName);

#ifdef __cplusplus
}
#endif

#endif
