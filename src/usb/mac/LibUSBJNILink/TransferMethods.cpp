#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include <algorithm>

#include "LibUSBJNILink/DeviceCall.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/DescriptorQueries.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "ground/ResultCodes.h"

namespace {

using ControlFunction = int32_t (*)(tagUSB_DEVICE_ACCESS_ENTRY*, int32_t, int32_t, uint8_t*);
using TransferFunction = int32_t (*)(tagUSB_DEVICE_ACCESS_ENTRY*, int32_t, int32_t, int32_t, uint8_t*);
using TransferExFunction = int32_t (*)(tagUSB_DEVICE_ACCESS_ENTRY*, int32_t, int32_t, int32_t, uint8_t*,
                                       int32_t, int32_t);

/// Bytes that the control transfer in the array may access. A setup packet cut short is padded with zeroes.
int32_t controlBytesTouched(PinnedBytes& pinned) {
    if (pinned.bytes() == nullptr) {
        return 0;
    }
    uint8_t setup[kSetupPacketBytes] = {};
    std::copy_n(pinned.bytes(), std::min(pinned.length(), kSetupPacketBytes), setup);
    return controlBufferBytes(setup);
}

jint controlCall(ControlFunction function, JNIEnv* env, jint listHandle, jint index, jint ignored,
                 jint timeout, jbyteArray buffer) {
    const OpenDevice device = findOpenDevice(listHandle, index);
    return callWithBytes(
        env, device.record(), buffer,
        [](const tagUSB_DEVICE_ACCESS_ENTRY&, PinnedBytes& pinned) { return controlBytesTouched(pinned); },
        [&](tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* bytes) {
            return function(&entry, ignored, timeout, bytes);
        });
}

/// The frame of all eight pipe transfers; `function(record, bytes)` runs the transfer.
template <class Function>
jint pipeCall(JNIEnv* env, jint listHandle, jint index, jint length, jbyteArray buffer, Function function) {
    const OpenDevice device = findOpenDevice(listHandle, index);
    return callWithBytes(
        env, device.record(), buffer,
        [length](const tagUSB_DEVICE_ACCESS_ENTRY&, PinnedBytes&) { return length; }, function);
}

jint transferCall(TransferFunction function, JNIEnv* env, jint listHandle, jint index, jint endpoint,
                  jint length, jint timeout, jbyteArray buffer) {
    return pipeCall(env, listHandle, index, length, buffer,
                    [&](tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* bytes) {
                        return function(&entry, endpoint, length, timeout, bytes);
                    });
}

jint transferExCall(TransferExFunction function, JNIEnv* env, jint listHandle, jint index, jint endpoint,
                    jint length, jint timeout, jbyteArray buffer, jint packetSize, jint fillValue) {
    return pipeCall(env, listHandle, index, length, buffer,
                    [&](tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* bytes) {
                        return function(&entry, endpoint, length, timeout, bytes, packetSize, fillValue);
                    });
}

/// The frame of both queries. With null bytes a query returns only a number, so without memory for the copy
/// of a short array it is not made and the result is -11.
template <class Touched, class Query>
jint queryCall(JNIEnv* env, jint listHandle, jint index, jbyteArray buffer, Touched touched, Query query) {
    bool wantsBytes = false;
    return callWithBytes(
        env, findListedDevice(listHandle, index), buffer,
        [&](const tagUSB_DEVICE_ACCESS_ENTRY& entry, const PinnedBytes& pinned) {
            wantsBytes = pinned.bytes() != nullptr;
            return touched(entry);
        },
        [&](tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* bytes) {
            return wantsBytes && bytes == nullptr ? kNoMemory : query(entry, bytes);
        });
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
    return transferCall(LibUSB_WriteBulkPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadBulkPipe(JNIEnv* env, jobject /*self*/,
                                                                    jint listHandle, jint index,
                                                                    jint endpoint, jint length, jint timeout,
                                                                    jbyteArray buffer) {
    return transferCall(LibUSB_ReadBulkPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteInterruptPipe(JNIEnv* env, jobject /*self*/,
                                                                          jint listHandle, jint index,
                                                                          jint endpoint, jint length,
                                                                          jint timeout, jbyteArray buffer) {
    return transferCall(LibUSB_WriteInterruptPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadInterruptPipe(JNIEnv* env, jobject /*self*/,
                                                                         jint listHandle, jint index,
                                                                         jint endpoint, jint length,
                                                                         jint timeout, jbyteArray buffer) {
    return transferCall(LibUSB_ReadInterruptPipe, env, listHandle, index, endpoint, length, timeout, buffer);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteInterruptPipeEx(JNIEnv* env, jobject /*self*/,
                                                                            jint listHandle, jint index,
                                                                            jint endpoint, jint length,
                                                                            jint timeout, jbyteArray buffer,
                                                                            jint packetSize, jint fillValue) {
    return transferExCall(LibUSB_WriteInterruptPipeEx, env, listHandle, index, endpoint, length, timeout,
                          buffer, packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadInterruptPipeEx(JNIEnv* env, jobject /*self*/,
                                                                           jint listHandle, jint index,
                                                                           jint endpoint, jint length,
                                                                           jint timeout, jbyteArray buffer,
                                                                           jint packetSize, jint fillValue) {
    return transferExCall(LibUSB_ReadInterruptPipeEx, env, listHandle, index, endpoint, length, timeout,
                          buffer, packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbWriteBulkPipeEx(JNIEnv* env, jobject /*self*/,
                                                                       jint listHandle, jint index,
                                                                       jint endpoint, jint length,
                                                                       jint timeout, jbyteArray buffer,
                                                                       jint packetSize, jint fillValue) {
    return transferExCall(LibUSB_WriteBulkPipeEx, env, listHandle, index, endpoint, length, timeout, buffer,
                          packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReadBulkPipeEx(JNIEnv* env, jobject /*self*/,
                                                                      jint listHandle, jint index,
                                                                      jint endpoint, jint length,
                                                                      jint timeout, jbyteArray buffer,
                                                                      jint packetSize, jint fillValue) {
    return transferExCall(LibUSB_ReadBulkPipeEx, env, listHandle, index, endpoint, length, timeout, buffer,
                          packetSize, fillValue);
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbResetPipe(JNIEnv* /*env*/, jobject /*self*/,
                                                                 jint listHandle, jint index, jint endpoint) {
    const OpenDevice device = findOpenDevice(listHandle, index);
    return callOn(device.record(),
                  [&](tagUSB_DEVICE_ACCESS_ENTRY& entry) { return LibUSB_ResetPipe(&entry, endpoint); });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCancelPipeTransfer(JNIEnv* /*env*/, jobject /*self*/,
                                                                          jint listHandle, jint index,
                                                                          jint endpoint) {
    const OpenDevice device = findOpenDevice(listHandle, index);
    return callOn(device.record(), [&](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        return LibUSB_CancelPipeTransfer(&entry, endpoint);
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetDeviceDescriptor(
    JNIEnv* env, jobject /*self*/, jint listHandle, jint index, jint descriptorType, jint descriptorIndex,
    jint bufferSize, jbyteArray buffer) {
    return queryCall(
        env, listHandle, index, buffer,
        [&](const tagUSB_DEVICE_ACCESS_ENTRY&) { return descriptorQueryBytes(descriptorType, bufferSize); },
        [&](tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* bytes) {
            return LibUSB_GetDeviceDescriptor(&entry, bytes, descriptorType, descriptorIndex, bufferSize);
        });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetEndpointList(JNIEnv* env, jobject /*self*/,
                                                                       jint listHandle, jint index,
                                                                       jbyteArray buffer) {
    return queryCall(
        env, listHandle, index, buffer,
        [](const tagUSB_DEVICE_ACCESS_ENTRY& entry) { return entry.endpointCount * kEndpointListEntryBytes; },
        [](tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* bytes) {
            return LibUSB_GetEndpointList(&entry, bytes);
        });
}
