// Puts the packets of one device together.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Recording.h"

namespace simbus::replay {

class RecordingReader {
 public:
    RecordingReader(RecordedDevice& device, std::vector<std::string>& problems)
        : device_(device), problems_(problems) {}

    void take(const capture::Packet& packet);
    /// To be called when there are no more packets.
    void finish();

 private:
    struct Flight {
        std::size_t exchange = 0;
        std::uint32_t wanted = 0;  ///< bytes
    };
    void begin(const capture::Packet& packet);
    void end(const capture::Packet& packet);
    bool isNextPiece(const capture::Packet& packet) const;
    void askForMissingDescriptors();
    void dropHalted();
    void clearHalts(const SetupBytes& setup, std::set<std::uint8_t>& halted) const;
    void keepDescriptor(const Exchange& exchange);
    void complain(const capture::Packet& packet, const std::string& what);
    void complainOfMissing(const capture::Packet& packet);

    RecordedDevice& device_;
    std::vector<std::string>& problems_;
    std::vector<Exchange> all_;
    std::vector<bool> isDropped_;                       ///< of `all_`: the replay leaves it out
    std::unordered_map<std::uint64_t, Flight> flying_;  ///< by the number of the transfer
    std::map<std::uint8_t, Flight> unfinished_;         ///< by endpoint: the rest is in the next packet
    bool saidIsochronous_ = false;
    bool saidMissing_ = false;
};

}  // namespace simbus::replay
