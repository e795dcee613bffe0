#include "DebugUtil/RecordDump.h"

#include <cstdio>

#include "DebugUtil/DebugLog.h"
#include "ground/DeviceRecords.h"

namespace {

/// Writes one line of the dump; `format` ends in a line feed.
template <class Value>
void writeField(const char* format, Value value) {
    char line[512];
    std::snprintf(line, sizeof line, format, value);
    DN_WriteStr(line, 0);
}

unsigned long addressOf(const void* object) {
    return reinterpret_cast<unsigned long>(object);
}

}  // namespace

void DN_WriteDAE(const tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    if (!isDebugEnabled()) {
        return;
    }
    DN_WriteStr("============================================================\n", 0);
    writeField("DAE : 0x%08lX\n", addressOf(entry));
    writeField("   familyStatus = %d\n", entry->familyStatus);
    writeField("     pHIDAccess = 0x%08lX\n", addressOf(entry->pHIDAccess));
    writeField("       idVendor = 0x%04X\n", entry->idVendor);
    writeField("      idProduct = 0x%04X\n", entry->idProduct);
    // Deliberate: unlike the ids, bcdDevice is printed without 0x.
    writeField("      bcdDevice = %04X\n", entry->bcdDevice);
    writeField("  sManufacturer = '%s'\n", entry->sManufacturer);
    writeField("       sProduct = '%s'\n", entry->sProduct);
    writeField("  sSerialNumber = '%s'\n", entry->sSerialNumber);
    writeField("interfaceNumber = %d\n", entry->interfaceNumber);
    writeField("          isHid = %d\n", entry->isHid);
}
