// The owner of a list of the library's pairs, or of one pair that is in no list.
#ifndef LANYARD_TESTS_SUPPORT_PAIR_LIST_H
#define LANYARD_TESTS_SUPPORT_PAIR_LIST_H

#include <memory>

#include <lanyard/radius/attr.h>

namespace lanyard::test {

struct PairListDeleter {
    void operator()(RadPair *list) const { radPairListFree(list); }
};
using PairList = std::unique_ptr<RadPair, PairListDeleter>;

}  // namespace lanyard::test

#endif
