#include "IoTest.h"

#include "MacOSXUSBAccess/io/Transfers.h"

void IoTest::openTool(const std::string& overrides) {
    startSession({deviceJson("tool", overrides)});
    tool_ = &openFirst();
}

std::unique_ptr<BackgroundCall> IoTest::blockedRead(uint8_t endpoint) {
    const size_t before = bus.pending("tool", endpoint);
    auto read = std::make_unique<BackgroundCall>([this, endpoint] {
        return LibUSB_ReadBulkPipe(tool_, endpoint, static_cast<int32_t>(blockedBuffer_.size()), 0,
                                   blockedBuffer_.data());
    });
    EXPECT_TRUE(eventually([&] { return bus.pending("tool", endpoint) > before; }));
    return read;
}

void IoTest::setBehaviour(const std::string& endpoint, const std::string& settings) {
    const std::string answer = bus.command(R"({"op":"endpoint","device":"tool","address":")" + endpoint +
                                           R"(","set":)" + settings + "}");
    EXPECT_NE(std::string::npos, answer.find("\"ok\":true")) << answer;
}
