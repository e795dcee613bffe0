// HID interfaces on the bus, and that the drop-in libusb does not claim them.
#include "HidScenario.h"

namespace simtest {
namespace {

using HidInterfacesOnTheBus = HidInterfaces;
using simbus::Status;

// The answer of "plain" to a request.
std::pair<Status, Bytes> request(simbus::ConnectionId connection, const simbus::Setup& setup) {
    Bytes data(setup.length);
    simbus::Transfer transfer;
    transfer.setup = setup;
    transfer.data = data.data();
    transfer.length = data.size();
    transfer.done = [] {};
    EXPECT_EQ(simbus::Bus::instance().submit(connection, transfer), simbus::Submitted::accepted);
    data.resize(transfer.actual);
    return {transfer.status, data};
}

Bytes reportDescriptor(std::uint8_t inputLow, std::uint8_t inputHigh, std::uint8_t output) {
    return {0x06, 0x00, 0xFF,   0x09, 0x01, 0xA1,     0x01,      0x15, 0x00, 0x26,
            0xFF, 0x00, 0x75,   0x08, 0x96, inputLow, inputHigh, 0x09, 0x01, 0x81,
            0x02, 0x96, output, 0x00, 0x09, 0x01,     0x91,      0x02, 0xC0};
}

TEST_F(HidInterfacesOnTheBus, TheConfigurationHoldsTheClassDescriptorBehindTheInterface) {
    const Bytes& whole = bus.devices()[0]->configurationDescriptors[0];
    EXPECT_EQ(Bytes(whole.begin() + 9, whole.begin() + 27),
              (Bytes{9, 4, 0, 0, 2, 3, 0, 0, 0, 9, 0x21, 0x11, 1, 0, 1, 0x22, 29, 0}));
}

TEST_F(HidInterfacesOnTheBus, AHidDriverFindsThem) {
    const auto devices = bus.devices();
    ASSERT_EQ(devices[0]->hidInterfaces.size(), 1U);
    EXPECT_EQ(devices[0]->hidInterfaces[0].inEndpoint, 0x81);
    EXPECT_EQ(devices[0]->hidInterfaces[0].outEndpoint, std::uint8_t{0x01});
    EXPECT_EQ(devices[0]->hidInterfaces[0].inputBytes, 64U);
    ASSERT_EQ(devices[1]->hidInterfaces.size(), 1U);
    EXPECT_EQ(devices[1]->hidInterfaces[0].number, 1);
    EXPECT_EQ(devices[1]->hidInterfaces[0].outEndpoint, std::nullopt);
    EXPECT_EQ(devices[1]->hidInterfaces[0].inputBytes, 512U);
}

TEST_F(HidInterfacesOnTheBus, ADriverTakesNoneWithoutAnInterruptInEndpoint) {
    ask({{"op", "add"},
         {"device",
          {{"id", "deaf"},
           {"interfaces", {{{"hid", Json::object()}, {"endpoints", {{{"address", "0x81"}}}}}}}}}});
    EXPECT_THAT(bus.devices().back()->hidInterfaces, testing::IsEmpty());
}

TEST_F(HidInterfacesOnTheBus, ReportSizesOutOfRangeAreRefused) {
    const std::string longReport(2 * 4097, '0');
    for (const Json& hid : {Json{{"input", 0}}, Json{{"input", 4097}}, Json{{"report", longReport}}}) {
        const Json answer =
            ask({{"op", "change"}, {"device", "hid"}, {"set", {{"interfaces", {{{"hid", hid}}}}}}});
        EXPECT_EQ(answer["ok"], false) << hid;
    }
}

TEST_F(HidInterfacesOnTheBus, DescriptorsAreGivenToTheInterfaceThatHasThem) {
    const auto hid = connectionOf("hid");
    const auto plain = connectionOf("plain");
    EXPECT_EQ(request(hid, {0x81, 6, 0x2200, 0, 255}).second, reportDescriptor(64, 0, 64));
    EXPECT_EQ(request(hid, {0x81, 6, 0x2200, 0, 5}).second.size(), 5U);
    EXPECT_EQ(request(hid, {0x81, 6, 0x2100, 0, 255}).second, (Bytes{9, 0x21, 0x11, 1, 0, 1, 0x22, 29, 0}));
    EXPECT_EQ(request(plain, {0x81, 6, 0x2200, 1, 255}).second, reportDescriptor(0, 2, 8));
    EXPECT_EQ(request(plain, {0x81, 6, 0x2200, 0, 255}).first, Status::stall);
    EXPECT_EQ(request(hid, {0x81, 6, 0x2300, 0, 255}).first, Status::stall);
}

TEST_F(HidInterfacesOnTheBus, ClassRequestsOfADriverAreTaken) {
    const auto hid = connectionOf("hid");
    for (const std::uint8_t taken : Bytes{9, 10, 11}) {
        EXPECT_EQ(request(hid, {0x21, taken, 0x0200, 0, 0}).first, Status::completed) << int{taken};
        EXPECT_EQ(request(connectionOf("plain"), {0x21, taken, 0x0200, 0, 0}).first, Status::stall);
    }
    EXPECT_EQ(request(hid, {0x21, 12, 0, 0, 0}).first, Status::stall);
    EXPECT_EQ(request(hid, {0xA1, 1, 0x0100, 0, 64}).first, Status::stall);
}

TEST_F(HidInterfacesOnTheBus, LibusbFindsThemHeldByADriver) {
    auto* plain = open("HIDT0002");
    EXPECT_EQ(libusb_kernel_driver_active(plain, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(plain, 1), 1);
    EXPECT_EQ(libusb_claim_interface(plain, 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_claim_interface(plain, 0), 0);
    EXPECT_EQ(libusb_set_configuration(open("HIDT0001"), 1), LIBUSB_ERROR_BUSY);
}

TEST_F(HidInterfacesOnTheBus, LibusbMovesNothingOverTheirEndpoints) {
    AsyncTransfer transfer(open("HIDT0001"), 0x01, counting(5), 0, LIBUSB_TRANSFER_TYPE_INTERRUPT);
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    EXPECT_THAT(bus.received("hid", 0x01), testing::IsEmpty());
    takeViolations();
}

}  // namespace
}  // namespace simtest
