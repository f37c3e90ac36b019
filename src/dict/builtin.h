// The built-in dictionary: lines of a dictionary file, without the keywords ATTRIBUTE and VALUE.
#ifndef LANYARD_DICT_BUILTIN_H
#define LANYARD_DICT_BUILTIN_H

#include <array>

namespace lanyard {

extern const std::array<const char *, 43> kBuiltinAttributes;
extern const std::array<const char *, 51> kBuiltinValues;

}  // namespace lanyard

#endif
