// The dictionary that the library carries: definitions in the format of dictionary files, without
// the keywords ATTRIBUTE and VALUE.
#ifndef LANYARD_DICT_BUILTIN_H
#define LANYARD_DICT_BUILTIN_H

#include <array>

namespace lanyard {

extern const std::array<const char *, 43> kBuiltinAttributes;
extern const std::array<const char *, 51> kBuiltinValues;

}  // namespace lanyard

#endif
