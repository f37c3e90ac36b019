// Attribute-value pairs and lists of them.
#include "attr/pair.h"

#include <algorithm>
#include <cstring>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <palcore.h>

#include "base/log.h"

namespace lanyard {
namespace {

bool isNumber(int32_t type) {
    return type == RAD_TYPE_INTEGER || type == RAD_TYPE_IPADDR || type == RAD_TYPE_DATE;
}

int assignString(RadPair &pair, const void *value, int len) {
    const size_t length =
        len > 0 ? static_cast<size_t>(len) : std::strlen(static_cast<const char *>(value));
    // Given: with length 0 text that is too long is refused, with a negative one it is cut and its
    // full length recorded.
    if (length > RAD_VALUE_MAX && len >= 0) {
        radLogAs("radPairAssign", kLogError, "radPairAssign: bad attribute value length\n");
        return -1;
    }
    const size_t kept = std::min<size_t>(length, RAD_VALUE_MAX);
    std::memmove(pair.strValue, value, kept);
    pair.strValue[kept] = '\0';
    if (len <= 0) {
        pair.strValue[RAD_VALUE_MAX] = '\0';
    }
    pair.numValue = static_cast<uint32_t>(length);
    return 0;
}

// Values may be passwords and keys.
void wipeAndFree(RadPair *pair) {
    explicit_bzero(pair->strValue, sizeof(pair->strValue));
    palMemPartFree(radMemPartId, pair);
}

// The pointer to a pair: the list itself or the `next` of the pair before. Null when the pair is not
// in the list.
RadPair **linkTo(RadPair **list, const RadPair *pair) {
    for (RadPair **link = list; *link; link = &(*link)->next) {
        if (*link == pair) {
            return link;
        }
    }
    return nullptr;
}

}  // namespace

PartitionPtr<RadPair> newPair(const RadDictAttr &attribute, const void *value, int length) {
    auto pair = allocateRecord<RadPair>();
    if (!pair) {
        radLogAs("radPairNew", kLogMemory, "radPairNew: out of memory\n");
        return nullptr;
    }
    static_assert(sizeof(pair->name) == sizeof(attribute.name));
    std::memcpy(pair->name, attribute.name, sizeof(pair->name));
    pair->attrNum = attribute.attrNum;
    pair->type = attribute.type;
    return radPairAssign(pair.get(), value, length) == 0 ? std::move(pair) : nullptr;
}

}  // namespace lanyard

using namespace lanyard;

RadPair *radPairNew(int attrNum, const void *value, int len) {
    if (!value) {
        return nullptr;
    }
    const RadDictAttr *attribute = radDictGetAttr(attrNum);
    if (!attribute) {
        radLog(kLogError, "radPairNew: unknown attribute %d\n", attrNum);
        return nullptr;
    }
    return newPair(*attribute, value, len).release();
}

int radPairAssign(RadPair *pair, const void *value, int len) {
    if (!pair || !value) {
        return -1;
    }
    if (isNumber(pair->type)) {
        std::memcpy(&pair->numValue, value, sizeof(pair->numValue));
        return 0;
    }
    if (pair->type == RAD_TYPE_STRING) {
        return assignString(*pair, value, len);
    }
    radLog(kLogError, "radPairAssign: unknown attribute type %d\n", pair->type);
    return -1;
}

RadPair *radPairAdd(RadPair **list, int attrNum, const void *value, int len) {
    if (!list || !value) {
        return nullptr;
    }
    PartitionPtr<RadPair> pair(radPairNew(attrNum, value, len));
    return radPairInsert(list, nullptr, pair.get()) == 0 ? pair.release() : nullptr;
}

int radPairInsert(RadPair **list, RadPair *after, RadPair *pair) {
    if (!list || !pair || pair->next) {
        return -1;
    }
    if (*list && after) {
        return -1;
    }
    RadPair **end = list;
    for (; *end; end = &(*end)->next) {
        if (*end == pair) {
            return -1;  // it would become its own successor
        }
    }
    *end = pair;
    return 0;
}

RadPair *radPairGet(RadPair *list, int attrNum) {
    while (list && list->attrNum != attrNum) {
        list = list->next;
    }
    return list;
}

RadPair *radPairNext(RadPair *pair) {
    return pair ? pair->next : nullptr;
}

int radPairRemove(RadPair **list, RadPair *pair) {
    if (!list || !pair) {
        return -1;
    }
    RadPair **link = linkTo(list, pair);
    if (!link) {
        return -1;
    }
    *link = pair->next;
    pair->next = nullptr;
    return 0;
}

int radPairDelete(RadPair **list, int attrNum) {
    if (!list) {
        return -1;
    }
    RadPair *pair = radPairGet(*list, attrNum);
    if (radPairRemove(list, pair) != 0) {
        return -1;
    }
    wipeAndFree(pair);
    return 0;
}

RadPair *radPairDup(const RadPair *pair) {
    if (!pair) {
        return nullptr;
    }
    auto copy = allocateRecord<RadPair>();
    if (copy) {
        *copy = *pair;
        copy->next = nullptr;
    }
    return copy.release();
}

void *radPairValue(RadPair *pair) {
    if (!pair) {
        return nullptr;
    }
    if (pair->type == RAD_TYPE_STRING) {
        return pair->strValue;
    }
    if (isNumber(pair->type)) {
        return &pair->numValue;
    }
    radLog(kLogError, "radPairValue: unknown attribute type %d\n", pair->type);
    return nullptr;
}

int radPairValueLen(const RadPair *pair) {
    if (!pair) {
        return -1;
    }
    if (pair->type == RAD_TYPE_STRING) {
        return static_cast<int>(pair->numValue);
    }
    if (isNumber(pair->type)) {
        return static_cast<int>(sizeof(pair->numValue));
    }
    radLog(kLogError, "radPairValueLen: unknown attribute type %d\n", pair->type);
    return -1;
}

void radPairListFree(RadPair *list) {
    while (list) {
        RadPair *next = list->next;
        wipeAndFree(list);
        list = next;
    }
}
