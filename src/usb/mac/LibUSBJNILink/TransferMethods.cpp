#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include <algorithm>
#include <new>

#include "LibUSBJNILink/EntryFrame.h"
#include "LibUSBJNILink/ListedDevice.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "LibUSBJNILink/PinnedBytes.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/DescriptorQueries.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "ground/ResultCodes.h"

namespace {

/// Bytes that the control transfer in the array may access. A setup packet cut short is padded with zeroes.
int32_t controlBytesTouched(const PinnedBytes& pinned) {
    if (pinned.bytes() == nullptr) {
        return 0;
    }
    uint8_t setup[kSetupPacketBytes] = {};
    std::copy_n(pinned.bytes(), std::min(pinned.length(), kSetupPacketBytes), setup);
    return controlBufferBytes(setup);
}

/// The frame of both control transfers.
template <class Function>
jint controlCall(Function function, JNIEnv* env, jint listHandle, jint index, jint ignored, jint timeout,
                 jbyteArray buffer) {
    return answer([&] {
        const OpenDevice device = findOpenDevice(listHandle, index);
        if (device.record() == nullptr) {
            return kBadArgument;
        }
        PinnedBytes pinned(env, buffer);
        return function(device.record(), ignored, timeout, pinned.atLeast(controlBytesTouched(pinned)));
    });
}

/// The frame of all eight pipe transfers; `settings` are the packet size and fill value of an extended call.
template <class Function, class... Settings>
jint pipeCall(Function function, JNIEnv* env, jint listHandle, jint index, jint endpoint, jint length,
              jint timeout, jbyteArray buffer, Settings... settings) {
    return answer([&] {
        const OpenDevice device = findOpenDevice(listHandle, index);
        if (device.record() == nullptr) {
            return kBadArgument;
        }
        PinnedBytes pinned(env, buffer);
        return function(device.record(), endpoint, length, timeout, pinned.atLeast(length), settings...);
    });
}

/// Returns the bytes for a query that may write `count` of them. With null bytes a query returns only a
/// number, so null stands only for an array without bytes. Throws std::bad_alloc without memory for the copy
/// of a short array.
uint8_t* queryBytes(PinnedBytes& pinned, int32_t count) {
    uint8_t* bytes = pinned.atLeast(count);
    if (bytes == nullptr && pinned.bytes() != nullptr) {
        throw std::bad_alloc();
    }
    return bytes;
}

}  // namespace

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteControlPipe(JNIEnv* env, jobject /*self*/,
                                                                        jint listHandle, jint index,
                                                                        jint ignored, jint timeout,
                                                                        jbyteArray buffer) {
    return controlCall(LibUSB_WriteControlPipe, env, listHandle, index, ignored, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadControlPipe(JNIEnv* env, jobject /*self*/,
                                                                       jint listHandle, jint index,
                                                                       jint ignored, jint timeout,
                                                                       jbyteArray buffer) {
    return controlCall(LibUSB_ReadControlPipe, env, listHandle, index, ignored, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteBulkPipe(JNIEnv* env, jobject /*self*/,
                                                                     jint listHandle, jint index,
                                                                     jint endpoint, jint length, jint timeout,
                                                                     jbyteArray buffer) {
    return pipeCall(LibUSB_WriteBulkPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadBulkPipe(JNIEnv* env, jobject /*self*/,
                                                                    jint listHandle, jint index,
                                                                    jint endpoint, jint length, jint timeout,
                                                                    jbyteArray buffer) {
    return pipeCall(LibUSB_ReadBulkPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteInterruptPipe(JNIEnv* env, jobject /*self*/,
                                                                          jint listHandle, jint index,
                                                                          jint endpoint, jint length,
                                                                          jint timeout, jbyteArray buffer) {
    return pipeCall(LibUSB_WriteInterruptPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadInterruptPipe(JNIEnv* env, jobject /*self*/,
                                                                         jint listHandle, jint index,
                                                                         jint endpoint, jint length,
                                                                         jint timeout, jbyteArray buffer) {
    return pipeCall(LibUSB_ReadInterruptPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteInterruptPipeEx(JNIEnv* env, jobject /*self*/,
                                                                            jint listHandle, jint index,
                                                                            jint endpoint, jint length,
                                                                            jint timeout, jbyteArray buffer,
                                                                            jint packetSize, jint fillValue) {
    return pipeCall(LibUSB_WriteInterruptPipeEx, env, listHandle, index, endpoint, length, timeout, buffer,
                    packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadInterruptPipeEx(JNIEnv* env, jobject /*self*/,
                                                                           jint listHandle, jint index,
                                                                           jint endpoint, jint length,
                                                                           jint timeout, jbyteArray buffer,
                                                                           jint packetSize, jint fillValue) {
    return pipeCall(LibUSB_ReadInterruptPipeEx, env, listHandle, index, endpoint, length, timeout, buffer,
                    packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteBulkPipeEx(JNIEnv* env, jobject /*self*/,
                                                                       jint listHandle, jint index,
                                                                       jint endpoint, jint length,
                                                                       jint timeout, jbyteArray buffer,
                                                                       jint packetSize, jint fillValue) {
    return pipeCall(LibUSB_WriteBulkPipeEx, env, listHandle, index, endpoint, length, timeout, buffer,
                    packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadBulkPipeEx(JNIEnv* env, jobject /*self*/,
                                                                      jint listHandle, jint index,
                                                                      jint endpoint, jint length,
                                                                      jint timeout, jbyteArray buffer,
                                                                      jint packetSize, jint fillValue) {
    return pipeCall(LibUSB_ReadBulkPipeEx, env, listHandle, index, endpoint, length, timeout, buffer,
                    packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbResetPipe(JNIEnv* /*env*/, jobject /*self*/,
                                                                 jint listHandle, jint index, jint endpoint) {
    return answer([&] {
        const OpenDevice device = findOpenDevice(listHandle, index);
        return device.record() == nullptr ? kBadArgument : LibUSB_ResetPipe(device.record(), endpoint);
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCancelPipeTransfer(JNIEnv* /*env*/, jobject /*self*/,
                                                                          jint listHandle, jint index,
                                                                          jint endpoint) {
    return answer([&] {
        const OpenDevice device = findOpenDevice(listHandle, index);
        return device.record() == nullptr ? kBadArgument
                                          : LibUSB_CancelPipeTransfer(device.record(), endpoint);
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetDeviceDescriptor(
    JNIEnv* env, jobject /*self*/, jint listHandle, jint index, jint descriptorType, jint descriptorIndex,
    jint bufferSize, jbyteArray buffer) {
    return answer([&] {
        tagUSB_DEVICE_ACCESS_ENTRY* entry = findListedDevice(listHandle, index);
        if (entry == nullptr) {
            return kBadArgument;
        }
        PinnedBytes pinned(env, buffer);
        uint8_t* bytes = queryBytes(pinned, descriptorQueryBytes(descriptorType, bufferSize));
        return LibUSB_GetDeviceDescriptor(entry, bytes, descriptorType, descriptorIndex, bufferSize);
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetEndpointList(JNIEnv* env, jobject /*self*/,
                                                                       jint listHandle, jint index,
                                                                       jbyteArray buffer) {
    return answer([&] {
        tagUSB_DEVICE_ACCESS_ENTRY* entry = findListedDevice(listHandle, index);
        if (entry == nullptr) {
            return kBadArgument;
        }
        PinnedBytes pinned(env, buffer);
        return LibUSB_GetEndpointList(entry,
                                      queryBytes(pinned, entry->endpointCount * kEndpointListEntryBytes));
    });
}
