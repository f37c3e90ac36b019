// An owner of pair lists.
#ifndef LANYARD_ATTR_PAIR_LIST_H
#define LANYARD_ATTR_PAIR_LIST_H

#include <cstdint>

#include <lanyard/radius/attr.h>

namespace lanyard {

// A pair list that is freed at the end.
class PairList {
  public:
    PairList() = default;
    PairList(const PairList &) = delete;
    PairList &operator=(const PairList &) = delete;
    ~PairList() { radPairListFree(head_); }

    RadPair *head() const { return head_; }
    RadPair **address() { return &head_; }

    bool addText(int attrNum, const char *text) {
        return radPairAdd(&head_, attrNum, text, 0) != nullptr;
    }
    bool addOctets(int attrNum, const uint8_t *octets, int length) {
        return radPairAdd(&head_, attrNum, octets, length) != nullptr;
    }
    bool addNumber(int attrNum, uint32_t number) {
        return radPairAdd(&head_, attrNum, &number, sizeof(number)) != nullptr;
    }

  private:
    RadPair *head_ = nullptr;
};

}  // namespace lanyard

#endif
