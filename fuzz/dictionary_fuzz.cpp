// A dictionary: the input is taken as an attribute, as a value and as a whole file.
#include <array>
#include <cstring>

#include <lanyard/radius/dict.h>

#include "fuzz/files.h"

namespace {

using namespace lanyard::fuzz;

void checkAttribute(const RadDictAttr *attribute) {
    if (attribute != nullptr) {
        require(::strnlen(attribute->name, sizeof(attribute->name)) <= RAD_NAME_MAX &&
                    attribute->name[0] != '\0',
                "an attribute has a name that fits");
        require(attribute->type >= RAD_TYPE_STRING && attribute->type <= RAD_TYPE_DATE,
                "an attribute has a type");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<char> line = textFrom(data, size);
    radDictUnload();
    const size_t before = liveBlocks();

    const int attribute = radDictAddAttr(line.data());
    require(liveBlocks() == before + (attribute == 0 ? 1 : 0), "an attribute is one block");
    for (int32_t number = -1; number <= 256; ++number) {
        checkAttribute(radDictGetAttr(number));
    }
    const int value = radDictAddValue(line.data());
    require(liveBlocks() == before + (attribute == 0 ? 1 : 0) + (value == 0 ? 1 : 0),
            "a value is one block");
    for (int32_t number = 0; number <= 8; ++number) {
        const RadDictValue *found = radDictGetVal(number, "Service-Type");
        require(found == nullptr ||
                    (found->value == number && std::strcmp("Service-Type", found->attrName) == 0),
                "what is found is what was asked for");
    }

    radDictUnload();
    require(liveBlocks() == before, "every block is freed");

    fileContent.assign(data, data + size);
    const int file = radDictLoad("/input");
    require(file == 0 || file == -1, "a file is taken or refused");
    for (int32_t number = -1; number <= 256; ++number) {
        checkAttribute(radDictGetAttr(number));
    }
    radDictUnload();
    require(liveBlocks() == before, "every block of a file is freed");
    return 0;
}
