#include "UsbDescriptors.h"

#include <algorithm>

namespace simbus::record {

namespace {

using capture::Bytes;

class DescriptorWriter {
 public:
    DescriptorWriter& byte(unsigned value) {
        bytes.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    DescriptorWriter& word(unsigned value) { return byte(value & 0xFFU).byte(value >> 8U & 0xFFU); }
    void more(const std::uint8_t* from, int count) {
        if (from != nullptr && count > 0) {
            bytes.insert(bytes.end(), from, from + count);
        }
    }
    /// Fills the descriptor that begins at `start` up to its length, with what libusb does not keep.
    void fill(std::size_t start, std::uint8_t length) {
        bytes.resize(std::max(bytes.size(), start + length));
    }

    Bytes bytes;
};

void write(DescriptorWriter& writer, const libusb_endpoint_descriptor& endpoint) {
    const std::size_t start = writer.bytes.size();
    writer.byte(endpoint.bLength).byte(endpoint.bDescriptorType).byte(endpoint.bEndpointAddress);
    writer.byte(endpoint.bmAttributes).word(endpoint.wMaxPacketSize).byte(endpoint.bInterval);
    if (endpoint.bLength >= LIBUSB_DT_ENDPOINT_AUDIO_SIZE) {
        writer.byte(endpoint.bRefresh).byte(endpoint.bSynchAddress);
    }
    writer.fill(start, endpoint.bLength);
    writer.more(endpoint.extra, endpoint.extra_length);
}

void write(DescriptorWriter& writer, const libusb_interface_descriptor& interface) {
    const std::size_t start = writer.bytes.size();
    writer.byte(interface.bLength).byte(interface.bDescriptorType).byte(interface.bInterfaceNumber);
    writer.byte(interface.bAlternateSetting).byte(interface.bNumEndpoints).byte(interface.bInterfaceClass);
    writer.byte(interface.bInterfaceSubClass).byte(interface.bInterfaceProtocol).byte(interface.iInterface);
    writer.fill(start, interface.bLength);
    writer.more(interface.extra, interface.extra_length);
    for (int i = 0; i < interface.bNumEndpoints; ++i) {
        write(writer, interface.endpoint[i]);
    }
}

}  // namespace

Bytes bytesOf(const libusb_device_descriptor& descriptor) {
    DescriptorWriter writer;
    writer.byte(descriptor.bLength).byte(descriptor.bDescriptorType).word(descriptor.bcdUSB);
    writer.byte(descriptor.bDeviceClass).byte(descriptor.bDeviceSubClass).byte(descriptor.bDeviceProtocol);
    writer.byte(descriptor.bMaxPacketSize0).word(descriptor.idVendor).word(descriptor.idProduct);
    writer.word(descriptor.bcdDevice).byte(descriptor.iManufacturer).byte(descriptor.iProduct);
    writer.byte(descriptor.iSerialNumber).byte(descriptor.bNumConfigurations);
    return writer.bytes;
}

Bytes bytesOf(const libusb_config_descriptor& descriptor) {
    DescriptorWriter writer;
    writer.byte(descriptor.bLength).byte(descriptor.bDescriptorType).word(descriptor.wTotalLength);
    writer.byte(descriptor.bNumInterfaces).byte(descriptor.bConfigurationValue);
    writer.byte(descriptor.iConfiguration).byte(descriptor.bmAttributes).byte(descriptor.MaxPower);
    writer.fill(0, descriptor.bLength);
    writer.more(descriptor.extra, descriptor.extra_length);
    for (int i = 0; i < descriptor.bNumInterfaces; ++i) {
        const libusb_interface& interface = descriptor.interface[i];
        std::for_each(interface.altsetting, interface.altsetting + interface.num_altsetting,
                      [&](const libusb_interface_descriptor& setting) { write(writer, setting); });
    }
    return writer.bytes;
}

Bytes bytesOf(const libusb_bos_descriptor& descriptor) {
    DescriptorWriter writer;
    writer.byte(descriptor.bLength).byte(descriptor.bDescriptorType).word(descriptor.wTotalLength);
    writer.byte(descriptor.bNumDeviceCaps);
    for (int i = 0; i < descriptor.bNumDeviceCaps; ++i) {
        const libusb_bos_dev_capability_descriptor& capability = *descriptor.dev_capability[i];
        writer.more(reinterpret_cast<const std::uint8_t*>(&capability), capability.bLength);
    }
    return writer.bytes;
}

}  // namespace simbus::record
