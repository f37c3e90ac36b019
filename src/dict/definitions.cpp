// Two lists, newest definition first, so that a later one hides an earlier one of the same number;
// and beside each an index: attributes by those numbers that fit the type of an attribute, which are
// all that requests look up; values by attribute name and number.
#include "dict/definitions.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include <lanyard/radius/dict.h>

#include "base/arena.h"

namespace lanyard {
namespace {

// The record that callers see, and the next one in its bucket of the index.
struct ValueEntry {
    RadDictValue value;
    ValueEntry *next;
};

Arena memory;

RadDictAttr *attributes = nullptr;
std::array<RadDictAttr *, 256> attributeByNumber{};

RadDictValue *values = nullptr;
size_t valueCount = 0;

// A power of two of chains, newest entry first. The first ones serve until there are more values.
std::array<ValueEntry *, 64> firstBuckets{};
std::span<ValueEntry *> buckets = firstBuckets;

// FNV-1a of the name; the numbers of one attribute stand side by side.
uint32_t hashOf(const char *attrName, int32_t number) {
    uint32_t hash = 2166136261U;
    for (; *attrName != '\0'; ++attrName) {
        hash = (hash ^ static_cast<unsigned char>(*attrName)) * 16777619U;
    }
    return hash + static_cast<uint32_t>(number);
}

// Copies a name that fits its field, which is zeroed.
template <size_t size>
void copyName(char (&field)[size], std::string_view name) {
    std::memcpy(field, name.data(), std::min(name.size(), size - 1));
}

ValueEntry *&bucketOf(const char *attrName, int32_t number) {
    return buckets[hashOf(attrName, number) & (buckets.size() - 1)];
}

// Twice as many buckets, if there is memory for them; otherwise the chains get longer. Each chain
// becomes two in the order that it had.
void growIndex() {
    const size_t count = buckets.size();
    auto *grown = memory.allocate<ValueEntry *>(2 * count);
    if (!grown) {
        return;
    }
    for (size_t bucket = 0; bucket < count; ++bucket) {
        std::array<ValueEntry **, 2> ends = {&grown[bucket], &grown[bucket + count]};
        for (ValueEntry *entry = buckets[bucket]; entry; entry = entry->next) {
            const bool upper = (hashOf(entry->value.attrName, entry->value.value) & count) != 0;
            *ends[upper] = entry;
            ends[upper] = &entry->next;
        }
        *ends[0] = *ends[1] = nullptr;
    }
    buckets = {grown, 2 * count};
}

}  // namespace

bool defineAttribute(const char *name, int32_t number, int32_t type) {
    auto *entry = memory.allocate<RadDictAttr>();
    if (!entry) {
        return false;
    }
    copyName(entry->name, name);
    entry->attrNum = number;
    entry->type = type;
    entry->next = attributes;
    attributes = entry;
    if (number >= 0 && number <= 255) {
        attributeByNumber[static_cast<size_t>(number)] = entry;
    }
    return true;
}

bool defineValue(const char *attrName, const char *valueName, int32_t number) {
    auto *entry = memory.allocate<ValueEntry>();
    if (!entry) {
        return false;
    }
    copyName(entry->value.attrName, attrName);
    copyName(entry->value.valueName, valueName);
    entry->value.value = number;
    entry->value.next = values;
    values = &entry->value;
    if (++valueCount > buckets.size()) {
        growIndex();
    }
    ValueEntry *&bucket = bucketOf(attrName, number);
    entry->next = bucket;
    bucket = entry;
    return true;
}

void forgetDefinitions() {
    attributes = nullptr;
    attributeByNumber.fill(nullptr);
    values = nullptr;
    valueCount = 0;
    firstBuckets.fill(nullptr);
    buckets = firstBuckets;
    memory.clear();
}

}  // namespace lanyard

using namespace lanyard;

const RadDictAttr *radDictGetAttr(int32_t attrNum) {
    if (attrNum >= 0 && attrNum <= 255) {
        return attributeByNumber[static_cast<size_t>(attrNum)];
    }
    const RadDictAttr *entry = attributes;
    while (entry && entry->attrNum != attrNum) {
        entry = entry->next;
    }
    return entry;
}

const RadDictValue *radDictGetVal(int32_t value, const char *attrName) {
    if (!attrName) {
        return nullptr;
    }
    const ValueEntry *entry = bucketOf(attrName, value);
    while (entry &&
           (entry->value.value != value || std::strcmp(entry->value.attrName, attrName) != 0)) {
        entry = entry->next;
    }
    return entry ? &entry->value : nullptr;
}
