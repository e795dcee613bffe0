// The reports of the drop-in hidapi.
#include <algorithm>

#include "HidDevice.h"

namespace {

using sim::ReportType;

int readReport(hid_device* device, unsigned char* data, size_t length, int milliseconds) {
    if (data == nullptr || length == 0) {
        device->readError = L"no buffer for the report";
        return sim::noted(*device, -1, L"no buffer for the report");
    }
    const auto timeout =
        milliseconds < 0 ? std::nullopt : std::make_optional(std::chrono::milliseconds(milliseconds));
    if (device->hasReport) {
        sim::countReportTaken();
    }
    const int count = device->opening->read(data, length, timeout);
    device->hasReport = count > 0;
    device->readError = count < 0 ? L"the device is gone" : L"";
    return sim::noted(*device, count, L"the device is gone");
}

/// The first byte is the report's number. 0 means that reports have no numbers: it is not sent, but counts in
/// the result.
int sendReport(hid_device& device, ReportType type, const unsigned char* data, size_t length) {
    if (data == nullptr || length == 0) {
        return sim::noted(device, -1, L"no report to send");
    }
    const size_t unnumbered = data[0] == 0 ? 1 : 0;
    const int sent = device.opening->setReport(type, data[0], data + unnumbered, length - unnumbered);
    return sim::noted(device, sent < 0 ? -1 : sent + static_cast<int>(unnumbered),
                      L"the device has refused the report");
}

int requestReport(hid_device& device, ReportType type, unsigned char* data, size_t length) {
    if (data == nullptr || length == 0) {
        return sim::noted(device, -1, L"no buffer for the report");
    }
    const size_t unnumbered = data[0] == 0 ? 1 : 0;
    const int count = device.opening->getReport(type, data[0], data + unnumbered, length - unnumbered);
    return sim::noted(device, count < 0 ? -1 : count + static_cast<int>(unnumbered),
                      L"the device has refused the request");
}

}  // namespace

int hid_write(hid_device* device, const unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    if (data == nullptr || length == 0) {
        return sim::noted(*device, -1, L"no report to send");
    }
    const size_t unnumbered = data[0] == 0 ? 1 : 0;
    const int sent = device->opening->write(data[0], data + unnumbered, length - unnumbered);
    return sim::noted(*device, sent < 0 ? -1 : sent + static_cast<int>(unnumbered),
                      L"the device has refused the report");
}

int hid_read_timeout(hid_device* device, unsigned char* data, size_t length, int milliseconds) {
    SIM_ENTER(-1)
    return readReport(device, data, length, milliseconds);
}

int hid_read(hid_device* device, unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    return readReport(device, data, length, device->blocking ? -1 : 0);
}

const wchar_t* hid_read_error(hid_device* device) {
    return device->readError.empty() ? L"Success" : device->readError.c_str();
}

int hid_set_nonblocking(hid_device* device, int nonblock) {
    SIM_ENTER(-1)
    device->blocking = nonblock == 0;
    return 0;
}

int hid_send_feature_report(hid_device* device, const unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    return sendReport(*device, ReportType::feature, data, length);
}

int hid_get_feature_report(hid_device* device, unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    return requestReport(*device, ReportType::feature, data, length);
}

int hid_send_output_report(hid_device* device, const unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    return sendReport(*device, ReportType::output, data, length);
}

int hid_get_input_report(hid_device* device, unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    return requestReport(*device, ReportType::input, data, length);
}

int hid_get_report_descriptor(hid_device* device, unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    if (data == nullptr || length == 0) {
        return sim::noted(*device, -1, L"no buffer for the descriptor");
    }
    const simbus::Bytes descriptor = sim::readReportDescriptor(device->opening->interface());
    const size_t count = std::min(length, descriptor.size());
    std::copy_n(descriptor.begin(), count, data);
    return sim::noted(*device, descriptor.empty() ? -1 : static_cast<int>(count),
                      L"the device has no report descriptor");
}
