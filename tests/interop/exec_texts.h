// Texts in the shape that the exec family takes them.
#ifndef LANYARD_TESTS_INTEROP_EXEC_TEXTS_H
#define LANYARD_TESTS_INTEROP_EXEC_TEXTS_H

#include <span>
#include <string>
#include <vector>

namespace lanyard::test {

// Returns pointers to the texts, which stay where they are, and a null pointer after them.
inline std::vector<char *> pointersTo(std::span<std::string> texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace lanyard::test

#endif
