#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// The allowed results of a call: some codes, and counts from 0 to `most`.
struct Expected {
    std::set<int32_t> codes;
    int32_t most = -1;

    Expected(int32_t only) : codes{only} {}  // NOLINT(google-explicit-constructor): a code is an expectation
    Expected(std::set<int32_t> any, int32_t upTo) : codes(std::move(any)), most(upTo) {}
    bool allows(int32_t result) const { return codes.count(result) != 0 || (result >= 0 && result <= most); }
};

struct ModelDevice {
    std::string id;
    int32_t vendorId;
    int32_t productId;
    bool isHid;
    bool isUnsupported;
    std::vector<int32_t> endpoints;  ///< addresses, in the order of the descriptor
    int32_t configurationBytes;
    bool plugged = true;
    int connection = 0;  ///< the present one or the last
};

struct ModelRecord {
    ModelDevice* device;
    int connection;  ///< the one that the list has seen
    bool isPresent = true;
    bool isOpen = false;
    int reports = 0;  ///< unread ones
    bool knowsReports = true;

    bool isUndisturbed() const { return device->plugged && device->connection == connection; }
};

struct ModelList {
    std::vector<int32_t> vendorIds;
    bool everyVendor;
    bool live;  ///< its session runs
    bool flagged = false;
    std::vector<std::shared_ptr<ModelRecord>> records;

    bool watches(int32_t vendorId) const;
};

/// Arguments of a pipe transfer.
struct ModelTransfer {
    bool writes;
    bool isInterrupt;
    bool isExtended;
    int32_t endpoint;
    int32_t length;
    bool hasArray;
    int32_t packetSize;

    int32_t submissionFailure() const { return writes ? -112 : -113; }
};

/// The state that a caller of the native methods can know: sessions, lists, records and open devices, derived
/// from the contract alone. Each function that is named after a native method has its effect on the model and
/// returns its result.
class JniModel {
 public:
    using Place = std::pair<int32_t, int32_t>;  ///< list handle and index
    using RecordPtr = std::shared_ptr<ModelRecord>;

    explicit JniModel(std::vector<ModelDevice> devices);

    int32_t usbInitialize();
    int32_t usbRelease(int32_t session);
    int32_t usbCreateDeviceList(int32_t session, int32_t vendorId);
    int32_t usbCreateDeviceList2(int32_t session, const std::vector<int32_t>& vendorIds);
    int32_t usbUpdateDeviceList(int32_t handle);
    int32_t usbReleaseDeviceList(int32_t handle);
    int32_t usbGetDeviceListCount(int32_t handle) const;
    std::string usbGetDeviceInfo(Place place) const;
    Expected usbOpenDevice(Place place) const;
    void opened(Place place);  ///< after an open that answered 0
    int32_t usbCloseDevice(Place place);
    Expected usbResetDevice(Place place) const;
    int32_t usbRestartDevice(Place place) const { return listed(place) == nullptr ? -114 : -120; }
    int32_t usbResetPipe(Place place) const { return open(place) == nullptr ? -114 : -120; }
    int32_t usbCancelPipeTransfer(Place place, int32_t endpoint) const;
    Expected control(Place place, bool writes, bool hasArray, int32_t dataBytes) const;
    Expected transfer(Place place, const ModelTransfer& transfer) const;
    int32_t usbGetDeviceDescriptor(Place place, int32_t type, int32_t index, int32_t size) const;
    int32_t usbGetEndpointList(Place place) const;

    /// Plugs or unplugs a device. Returns the handle of the list that is marked as changed, or -1.
    int32_t change(std::size_t device);

    RecordPtr listed(Place place) const;
    RecordPtr open(Place place) const;
    int32_t lists() const { return static_cast<int32_t>(lists_.size()); }
    ModelDevice& device(std::size_t number) { return devices_[number]; }
    const std::map<Place, RecordPtr>& openDevices() const { return open_; }

 private:
    int32_t session() const { return runs_ ? 0 : -1; }
    ModelList* find(int32_t handle);
    const ModelList* find(int32_t handle) const { return const_cast<JniModel*>(this)->find(handle); }
    int32_t missing() const { return lists_.empty() ? -104 : -103; }
    int32_t reusable(const std::vector<int32_t>& vendorIds, bool onlyThis) const;
    int32_t create(std::vector<int32_t> vendorIds, bool everyVendor);
    void enumerate(ModelList& list);
    Expected hidTransfer(const ModelRecord& record, const ModelTransfer& transfer) const;

    std::vector<ModelDevice> devices_;
    std::vector<ModelList> lists_;
    std::map<Place, RecordPtr> open_;
    std::set<int32_t> watched_;  ///< vendor ids with a hotplug notice
    bool runs_ = false;
    int connections_ = 0;
};
