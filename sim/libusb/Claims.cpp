#include "Claims.h"

#include <algorithm>

namespace sim {

namespace {

auto keyOf(const libusb_device_handle& handle, std::uint8_t interfaceNumber) {
    return std::make_pair(handle.device->info->connection, interfaceNumber);
}

bool fits(unsigned char asked, simbus::TransferType actual) {
    const bool same = asked == static_cast<unsigned char>(actual);
    // The kernel treats a bulk transfer on an interrupt endpoint as an interrupt transfer, but not the
    // reverse.
    return same || (asked == LIBUSB_TRANSFER_TYPE_BULK && actual == simbus::TransferType::interrupt);
}

/// Returns false when another handle, of this process or of another one on the same bus, has the interface.
bool reserve(libusb_device_handle& handle, std::uint8_t interfaceNumber) {
    const auto [claim, isNew] = state().claims.emplace(keyOf(handle, interfaceNumber), &handle);
    if (isNew && !simbus::Bus::instance().claim(handle.device->info->connection, interfaceNumber)) {
        state().claims.erase(claim);
        return false;
    }
    return claim->second == &handle;
}

}  // namespace

bool hasClaimed(const libusb_device_handle& handle, std::uint8_t interfaceNumber) {
    return (handle.claimed & 1U << interfaceNumber) != 0;
}

void dropClaim(libusb_device_handle& handle, std::uint8_t interfaceNumber) {
    handle.claimed &= ~(1U << interfaceNumber);
    state().claims.erase(keyOf(handle, interfaceNumber));
    simbus::Bus::instance().release(handle.device->info->connection, interfaceNumber);
}

int claimInterface(libusb_device_handle& handle, std::uint8_t interfaceNumber) {
    auto& bus = simbus::Bus::instance();
    const simbus::ConnectionId connection = handle.device->info->connection;
    if (!bus.configuration(connection)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!bus.alternate(connection, interfaceNumber)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (heldByHidDriver(*handle.device, interfaceNumber)) {
        return LIBUSB_ERROR_BUSY;
    }
    if (!reserve(handle, interfaceNumber)) {
        return LIBUSB_ERROR_BUSY;
    }
    handle.claimed |= 1U << interfaceNumber;
    return LIBUSB_SUCCESS;
}

int claimForTransfer(TransferRecord& record) {
    const simbus::ConnectionId connection = record.device->info->connection;
    const auto endpoint = simbus::Bus::instance().activeEndpoint(connection, record.shown->endpoint);
    if (!endpoint || !fits(record.shown->type, endpoint->type)) {
        return simbus::Bus::instance().configuration(connection) ? LIBUSB_ERROR_IO : LIBUSB_ERROR_NO_DEVICE;
    }
    if (heldByHidDriver(*record.device, endpoint->interfaceNumber)) {
        return LIBUSB_ERROR_IO;
    }
    record.interfaceNumber = endpoint->interfaceNumber;
    return reserve(*record.handle, endpoint->interfaceNumber) ? LIBUSB_SUCCESS : LIBUSB_ERROR_IO;
}

bool heldByHidDriver(const libusb_device& device, std::uint8_t interfaceNumber) {
    const auto& held = device.info->hidInterfaces;
    return std::any_of(held.begin(), held.end(),
                       [&](const auto& interface) { return interface.number == interfaceNumber; }) &&
           simbus::Bus::instance().hasDriver(device.info->connection, interfaceNumber);
}

bool anyClaimed(const libusb_device& device) {
    const auto& claims = state().claims;
    const auto& held = device.info->hidInterfaces;
    return std::any_of(held.begin(), held.end(),
                       [&](const auto& interface) { return heldByHidDriver(device, interface.number); }) ||
           std::any_of(claims.begin(), claims.end(),
                       [&](const auto& claim) { return claim.first.first == device.info->connection; });
}

void dropClaims(const libusb_device_handle& handle) {
    auto& claims = state().claims;
    for (auto claim = claims.begin(); claim != claims.end();) {
        if (claim->second != &handle) {
            ++claim;
            continue;
        }
        simbus::Bus::instance().release(claim->first.first, claim->first.second);
        claim = claims.erase(claim);
    }
}

}  // namespace sim
