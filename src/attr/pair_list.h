// The owner of a pair list.
#ifndef LANYARD_ATTR_PAIR_LIST_H
#define LANYARD_ATTR_PAIR_LIST_H

#include <cstdint>

#include <lanyard/radius/attr.h>

#include "attr/pair.h"

namespace lanyard {

class PairList {
  public:
    PairList() = default;
    PairList(const PairList &) = delete;
    PairList &operator=(const PairList &) = delete;
    ~PairList() { radPairListFree(head_); }

    RadPair *head() const { return head_; }

    // For a function that fills an empty list; nothing is added here after that.
    RadPair **address() { return &head_; }

    // Takes over a pair that is in no list. False for null.
    bool append(RadPair *pair) { return appender_.append(PartitionPtr<RadPair>(pair)); }

    bool addText(int attrNum, const char *text) { return append(radPairNew(attrNum, text, 0)); }
    bool addBytes(int attrNum, const uint8_t *bytes, int length) {
        return append(radPairNew(attrNum, bytes, length));
    }
    bool addNumber(int attrNum, uint32_t number) {
        return append(radPairNew(attrNum, &number, sizeof(number)));
    }

  private:
    RadPair *head_ = nullptr;
    PairAppender appender_{&head_};
};

}  // namespace lanyard

#endif
