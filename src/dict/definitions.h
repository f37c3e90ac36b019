// The definitions of the dictionary: adding and forgetting them. They are found by radDictGetAttr()
// and radDictGetVal().
#ifndef LANYARD_DICT_DEFINITIONS_H
#define LANYARD_DICT_DEFINITIONS_H

#include <cstdint>

namespace lanyard {

// Both copy the names, which fit their fields, and return false when memory is exhausted.
[[nodiscard]] bool defineAttribute(const char *name, int32_t number, int32_t type);
[[nodiscard]] bool defineValue(const char *attrName, const char *valueName, int32_t number);

void forgetDefinitions();

}  // namespace lanyard

#endif
