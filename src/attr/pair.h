// Making pairs and lists of them inside the library.
#ifndef LANYARD_ATTR_PAIR_H
#define LANYARD_ATTR_PAIR_H

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "base/partition.h"

namespace lanyard {

// radPairNew() for an attribute that has been looked up.
[[nodiscard]] PartitionPtr<RadPair> newPair(const RadDictAttr &attribute, const void *value,
                                            int length);

// Appends pairs to a list without walking it. Nothing else may change the list meanwhile.
class PairAppender {
  public:
    // `list` is empty.
    explicit PairAppender(RadPair **list) : end_(list) {}

    // False for null, and for a pair that is in a list.
    [[nodiscard]] bool append(PartitionPtr<RadPair> pair) {
        if (!pair || pair->next) {
            return false;
        }
        *end_ = pair.release();
        end_ = &(*end_)->next;
        return true;
    }

  private:
    RadPair **end_;
};

}  // namespace lanyard

#endif
