// The table of options, and three of them: dictionary, time-out, retries.
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <palcore.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/text.h"
#include "conf/store.h"

namespace lanyard {

constinit RadConf radConf = {
    .options = {{
        {"authserver", nullptr, radConfSetAuthServ, radConfDelAuthServ},
        {"acctserver", nullptr, radConfSetAcctServ, radConfDelAcctServ},
        {"dictionary", nullptr, radConfSetDict, radConfDelDict},
        {"timeout", nullptr, radConfSetTimeout, radConfDelTimeout},
        {"retries", nullptr, radConfSetRetries, radConfDelRetries},
    }},
    .authServers = freeSlots(),
    .acctServers = freeSlots(),
    .authCount = 0,
    .acctCount = 0,
};

namespace {

void clearOption(unsigned index) {
    palMemPartFree(radMemPartId, radConf.options[index].value);
    radConf.options[index].value = nullptr;
}

// Sets a numeric option to the number that the text starts with.
bool setNumber(unsigned index, const char *text, const char *function) {
    clearOption(index);
    if (!startsWithDigit(text)) {
        return false;
    }
    auto number = allocateRecord<int32_t>();
    if (!number) {
        radLogAs(function, kLogMemory, "%s: out of memory\n", function);
        return false;
    }
    *number = decimalValue(text);
    radConf.options[index].value = number.release();
    return true;
}

int32_t numberOf(unsigned index) {
    return *static_cast<const int32_t *>(radConf.options[index].value);
}

// The value of an option, whatever it points to; null, which is logged, while it is unset.
void *valueOf(unsigned index) {
    const ConfOption &option = radConf.options[index];
    if (!option.value) {
        radLogAs("radConfGet", kLogTrace, "radConfGet: failed to get value of config option : %s\n",
                 option.keyword);
    }
    return option.value;
}

}  // namespace

const int32_t *defaultTimeout() {
    return static_cast<const int32_t *>(valueOf(RAD_CONF_TIMEOUT));
}

const int32_t *defaultRetries() {
    return static_cast<const int32_t *>(valueOf(RAD_CONF_RETRIES));
}

ServerList authServers() {
    return {.slots = valueOf(RAD_CONF_AUTH_SERVERS) ? &radConf.authServers : nullptr,
            .count = radConf.authCount};
}

ServerList acctServers() {
    return {.slots = valueOf(RAD_CONF_ACCT_SERVERS) ? &radConf.acctServers : nullptr,
            .count = radConf.acctCount};
}

}  // namespace lanyard

using namespace lanyard;

void *radConfGet(uint32_t index) {
    return index < radConf.options.size() ? valueOf(index) : nullptr;
}

int radConfSetTimeout(const char *text) {
    if (!text || !setNumber(RAD_CONF_TIMEOUT, text, __func__)) {
        return -1;
    }
    radLog(kLogTrace, "Default Timeout Set to %d\n", numberOf(RAD_CONF_TIMEOUT));
    return 0;
}

int radConfSetRetries(const char *text) {
    if (!text || !setNumber(RAD_CONF_RETRIES, text, __func__)) {
        return -1;
    }
    radLog(kLogTrace, "Default Retry Count Set to %d\n", numberOf(RAD_CONF_RETRIES));
    return 0;
}

int radConfSetDict(const char *path) {
    if (!path || radConf.options[RAD_CONF_DICTIONARY].value) {
        return -1;
    }
    auto copy = copyText(path);
    if (!copy || radDictLoad(copy.get()) != 0) {
        return -1;
    }
    radConf.options[RAD_CONF_DICTIONARY].value = copy.release();
    return 0;
}

int radConfDelTimeout(void) {
    clearOption(RAD_CONF_TIMEOUT);
    return 0;
}

int radConfDelRetries(void) {
    clearOption(RAD_CONF_RETRIES);
    return 0;
}

int radConfDelDict(void) {
    clearOption(RAD_CONF_DICTIONARY);
    radDictUnload();
    return 0;
}

int radDeconfigure(void) {
    int status = 0;
    for (const auto &option : radConf.options) {
        if (option.del() != 0) {
            status = -1;
        }
    }
    radDictUnload();
    radLog(kLogTrace, "RADIUS Deconfigured\n");
    return status;
}
