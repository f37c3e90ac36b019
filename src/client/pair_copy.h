// A copy of a pair list in as few bytes as its values need: a request in flight keeps one to make
// the packet for the next server of.
#ifndef LANYARD_CLIENT_PAIR_COPY_H
#define LANYARD_CLIENT_PAIR_COPY_H

#include <cstddef>

#include <lanyard/radius/attr.h>

#include "attr/pair_list.h"
#include "base/partition.h"

namespace lanyard {

class PairCopy {
  public:
    // False when memory is exhausted.
    [[nodiscard]] bool assign(const RadPair *list);

    // Makes the pairs anew, at the end of a list. False when memory is exhausted.
    [[nodiscard]] bool appendTo(PairList &list) const;

  private:
    SecretBytes bytes_;
    size_t size_ = 0;
};

}  // namespace lanyard

#endif
