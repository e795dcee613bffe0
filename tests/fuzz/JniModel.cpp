#include "JniModel.h"

#include <algorithm>
#include <cstdio>

namespace {

using RecordPtr = JniModel::RecordPtr;

/// The code of a call that needs an open device, or 0.
int32_t refusal(const RecordPtr& record) {
    if (record == nullptr) {
        return -114;
    }
    return record->isOpen ? 0 : -109;
}

/// The code of a call that does not support HID devices, or 0.
int32_t refusalWithoutHid(const RecordPtr& record) {
    const int32_t code = refusal(record);
    return code == 0 && record->device->isHid ? -120 : code;
}

constexpr int kReportBytes = 64;
constexpr std::size_t kMostVendorIds = 16;

template <class Values, class Value>
bool contains(const Values& values, const Value& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

/// The expected result of a transfer on an endpoint of the echo tool.
Expected outcome(const ModelTransfer& transfer, const std::set<int32_t>& failures) {
    const int32_t length = transfer.length;
    switch (transfer.endpoint & 0x0F) {
        case 1:
            if (transfer.isInterrupt) {
                return transfer.submissionFailure();  // a bulk endpoint; the other way round it works
            }
            [[fallthrough]];
        case 2:
            return transfer.writes ? Expected(length) : Expected({-150}, length);
        case 3:
            return length;
        case 4:
            return -150;
        case 5:  // a packet that was stalled counts as sent
            return transfer.writes && transfer.isInterrupt && transfer.isExtended ? length : 0;
        case 0:  // the control pipe, under a wrong name
            return Expected(failures, length);
        default:
            return transfer.submissionFailure();
    }
}

}  // namespace

bool ModelList::watches(int32_t vendorId) const {
    return contains(vendorIds, vendorId);
}

JniModel::JniModel(std::vector<ModelDevice> devices) : devices_(std::move(devices)) {
    for (ModelDevice& each : devices_) {
        each.connection = ++connections_;
    }
}

ModelList* JniModel::find(int32_t handle) {
    return handle >= 0 && handle < lists() ? &lists_[static_cast<std::size_t>(handle)] : nullptr;
}

JniModel::RecordPtr JniModel::listed(Place place) const {
    const ModelList* list = find(place.first);
    const bool there =
        list != nullptr && place.second >= 0 && place.second < static_cast<int32_t>(list->records.size());
    return there ? list->records[static_cast<std::size_t>(place.second)] : nullptr;
}

JniModel::RecordPtr JniModel::open(Place place) const {
    const auto found = open_.find(place);
    return found == open_.end() ? nullptr : found->second;
}

int32_t JniModel::usbInitialize() {
    return std::exchange(runs_, true) ? -115 : 0;
}

int32_t JniModel::usbRelease(int32_t id) {
    if (id != session()) {
        return -116;
    }
    for (ModelList& list : lists_) {
        list.live = false;
        for (const RecordPtr& record : list.records) {
            record->isOpen = record->isOpen && record->device->isHid;
        }
    }
    watched_.clear();
    runs_ = false;
    return 0;
}

int32_t JniModel::reusable(const std::vector<int32_t>& vendorIds, bool onlyThis) const {
    for (const ModelList& list : lists_) {
        const bool same = onlyThis ? list.vendorIds == vendorIds
                                   : list.vendorIds.size() == vendorIds.size() &&
                                         std::all_of(list.vendorIds.begin(), list.vendorIds.end(),
                                                     [&](int32_t id) { return contains(vendorIds, id); });
        if (list.live && !list.records.empty() && same) {
            return static_cast<int32_t>(&list - lists_.data());
        }
    }
    return -1;
}

int32_t JniModel::create(std::vector<int32_t> vendorIds, bool everyVendor) {
    lists_.push_back({std::move(vendorIds), everyVendor, runs_, false, {}});
    enumerate(lists_.back());
    return lists() - 1;
}

/// Adds the missing devices of the list's vendors, the one plugged in last first.
void JniModel::enumerate(ModelList& list) {
    std::vector<ModelDevice*> found;
    for (ModelDevice& each : devices_) {
        const bool known = std::any_of(list.records.begin(), list.records.end(),
                                       [&](const RecordPtr& record) { return record->device == &each; });
        if (list.live && each.plugged && !known && (list.everyVendor || list.watches(each.vendorId))) {
            found.push_back(&each);
        }
    }
    std::sort(found.begin(), found.end(),
              [](const auto* one, const auto* other) { return one->connection > other->connection; });
    for (ModelDevice* each : found) {
        list.records.push_back(std::make_shared<ModelRecord>(ModelRecord{each, each->connection}));
    }
}

int32_t JniModel::usbCreateDeviceList(int32_t id, int32_t vendorId) {
    if (id != session()) {
        return -116;
    }
    // The id for every vendor is that of an unused slot.
    const std::vector<int32_t> ids = vendorId == -1 ? std::vector<int32_t>() : std::vector{vendorId};
    const int32_t existing = runs_ ? reusable(ids, true) : -1;
    return existing >= 0 ? existing : create(ids, vendorId == -1);
}

int32_t JniModel::usbCreateDeviceList2(int32_t id, const std::vector<int32_t>& vendorIds) {
    if (id != session()) {
        return -116;
    }
    std::vector<int32_t> ids = vendorIds;
    ids.resize(std::min(ids.size(), kMostVendorIds));
    const int32_t existing = runs_ ? reusable(ids, false) : -1;
    if (existing >= 0) {
        return existing;
    }
    if (runs_) {
        watched_.insert(ids.begin(), ids.end());
    }
    return create(ids, false);
}

int32_t JniModel::usbUpdateDeviceList(int32_t handle) {
    ModelList* list = find(handle);
    if (list == nullptr) {
        return missing();
    }
    if (!list->live || !std::exchange(list->flagged, false)) {
        return 0;
    }
    for (const RecordPtr& record : list->records) {
        record->isPresent = record->device->plugged && list->watches(record->device->vendorId);
        if (record->isPresent && record->connection != record->device->connection) {
            record->isOpen = false;
            record->connection = record->device->connection;
        }
    }
    list->everyVendor = false;
    enumerate(*list);
    return 0;
}

int32_t JniModel::usbReleaseDeviceList(int32_t handle) {
    ModelList* list = find(handle);
    if (list == nullptr) {
        return missing();
    }
    for (const RecordPtr& record : list->records) {
        record->isOpen = false;
    }
    list->records.clear();
    return 0;
}

int32_t JniModel::usbGetDeviceListCount(int32_t handle) const {
    const ModelList* list = find(handle);
    return list == nullptr ? 0 : static_cast<int32_t>(list->records.size());
}

std::string JniModel::usbGetDeviceInfo(Place place) const {
    const RecordPtr record = listed(place);
    if (record == nullptr) {
        return "";
    }
    const ModelDevice& device = *record->device;
    const char* letter = device.isUnsupported ? "u" : "b";
    char line[256];
    std::snprintf(line, sizeof line, "%d:=%04X:=%04X:=0100:=Talvane:=Echo Tool:=%s:=x:=%s:=0:=0:=end",
                  record->isPresent ? 1 : 0, static_cast<unsigned>(device.vendorId),
                  static_cast<unsigned>(device.productId), device.id.c_str(), device.isHid ? "h" : letter);
    return line;
}

Expected JniModel::usbOpenDevice(Place place) const {
    const RecordPtr record = listed(place);
    if (record == nullptr) {
        return -114;
    }
    if (record->isOpen) {
        return -105;
    }
    if (!record->isPresent) {
        return -131;
    }
    if (record->device->isUnsupported) {
        return -158;
    }
    if (!find(place.first)->live) {
        return -107;
    }
    if (record->device->isHid) {
        return 0;
    }
    if (!record->isUndisturbed()) {
        return Expected({-107, -108, -130}, -1);
    }
    // An interface can be claimed only once.
    for (const ModelList& list : lists_) {
        for (const RecordPtr& other : list.records) {
            if (other->isOpen && other->device == record->device && other->connection == record->connection) {
                return -108;
            }
        }
    }
    return 0;
}

void JniModel::opened(Place place) {
    listed(place)->isOpen = true;
    open_[place] = listed(place);
}

int32_t JniModel::usbCloseDevice(Place place) {
    const RecordPtr record = open(place);
    if (record == nullptr) {
        return -114;
    }
    open_.erase(place);
    return std::exchange(record->isOpen, false) ? 0 : -109;
}

Expected JniModel::usbResetDevice(Place place) const {
    const RecordPtr record = open(place);
    if (const int32_t code = refusalWithoutHid(record); code != 0) {
        return code;
    }
    return record->isUndisturbed() ? Expected(0) : Expected({-4, -5}, -1);
}

int32_t JniModel::usbCancelPipeTransfer(Place place, int32_t endpoint) const {
    const RecordPtr record = open(place);
    if (const int32_t code = refusalWithoutHid(record); code != 0) {
        return code;
    }
    return (endpoint & 0x70) != 0 ? -109 : -5;  // nothing is under way between two calls
}

Expected JniModel::control(Place place, bool writes, bool hasArray, int32_t dataBytes) const {
    const RecordPtr record = open(place);
    if (const int32_t code = refusalWithoutHid(record); code != 0) {
        return code;
    }
    const int32_t failure = writes ? -112 : -113;
    if (!hasArray) {
        return failure;
    }
    return record->isUndisturbed() ? Expected({}, dataBytes) : Expected({failure}, dataBytes);
}

Expected JniModel::hidTransfer(const ModelRecord& record, const ModelTransfer& transfer) const {
    if (!transfer.isInterrupt) {
        return -120;
    }
    if (!transfer.hasArray && transfer.length > 0) {
        return transfer.submissionFailure();
    }
    if (transfer.writes) {
        return std::max(transfer.length, 0);
    }
    // A read with another packet size than that of the slots may return earlier contents of the ring.
    const bool otherSlots = transfer.isExtended && transfer.packetSize != kReportBytes;
    if ((otherSlots || !record.knowsReports) && transfer.length > 0) {
        return Expected({-150, transfer.length}, -1);
    }
    const bool enough = transfer.length > 0 && transfer.length <= record.reports * kReportBytes;
    return enough ? transfer.length : -150;
}

Expected JniModel::transfer(Place place, const ModelTransfer& transfer) const {
    const RecordPtr record = open(place);
    if (const int32_t code = refusal(record); code != 0) {
        return code;
    }
    const bool packets = transfer.isInterrupt && transfer.isExtended;
    if (packets && (transfer.packetSize < 64 || transfer.packetSize > 1024)) {
        return -114;
    }
    if (record->device->isHid) {
        return hidTransfer(*record, transfer);
    }
    if (packets && transfer.writes && transfer.length <= 0) {
        return 0;
    }
    if ((transfer.endpoint & 0x70) != 0) {
        return -109;
    }
    if (transfer.length < 0 || (!transfer.hasArray && transfer.length > 0)) {
        return transfer.submissionFailure();
    }
    const std::set<int32_t> failures{transfer.submissionFailure(), -150};
    return record->isUndisturbed() ? outcome(transfer, failures) : Expected(failures, transfer.length);
}

int32_t JniModel::usbGetDeviceDescriptor(Place place, int32_t type, int32_t index, int32_t size) const {
    const RecordPtr record = listed(place);
    if (record == nullptr) {
        return -114;
    }
    const ModelDevice& device = *record->device;
    const std::string texts[] = {"Talvane", "Echo Tool", device.id};
    switch (type) {
        case 1:
            return 18;
        case 2:
            return std::clamp(size, 0, device.configurationBytes);
        case 3:
            return index < 1 || index > 3 ? -114
                                          : std::min(static_cast<int32_t>(texts[index - 1].size()), size);
        case 5:
            if (!contains(device.endpoints, index & 0xFF)) {
                return -131;
            }
            return size >= 1 && size <= 6 ? size : 7;
        default:
            return -114;
    }
}

int32_t JniModel::usbGetEndpointList(Place place) const {
    const RecordPtr record = listed(place);
    return record == nullptr ? -114 : static_cast<int32_t>(record->device->endpoints.size());
}

int32_t JniModel::change(std::size_t number) {
    ModelDevice& device = devices_[number];
    device.plugged = !device.plugged;
    if (device.plugged) {
        device.connection = ++connections_;
    }
    for (ModelList& list : lists_) {
        if (list.live && watched_.count(device.vendorId) != 0 && list.watches(device.vendorId)) {
            list.flagged = true;
            return static_cast<int32_t>(&list - lists_.data());
        }
    }
    return -1;
}
