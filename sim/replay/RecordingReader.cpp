#include "RecordingReader.h"

#include <algorithm>
#include <utility>

namespace simbus::replay {

namespace {

using capture::Event;
using capture::Packet;

constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kSetAddress = 5;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint8_t kSetInterface = 11;

/// A failure that no device causes at will becomes a stall.
Exchange::End endOf(std::int32_t status) {
    switch (status) {
        case capture::statusCompleted:
        case capture::statusShort:
            return Exchange::End::completed;
        case capture::statusCancelled:
        case capture::statusUnlinked:
            return Exchange::End::silent;
        case capture::statusNoDevice:
        case capture::statusShutdown:
            return Exchange::End::gone;
        default:
            return Exchange::End::stall;
    }
}

bool isHost(const Exchange& exchange) {
    return exchange.kind == Kind::control || !exchange.isIn();
}

/// Keeps the longest.
void keep(Bytes& kept, const Bytes& found) {
    if (found.size() > kept.size()) {
        kept = found;
    }
}

}  // namespace

void RecordingReader::take(const Packet& packet) {
    if (packet.kind == Kind::isochronous) {
        if (!std::exchange(saidIsochronous_, true)) {
            complain(packet, "isochronous transfers are not replayed");
        }
    } else if (packet.event == Event::submission) {
        begin(packet);
    } else {
        end(packet);
    }
}

void RecordingReader::begin(const Packet& packet) {
    const bool isPiece = isNextPiece(packet);
    Flight flight = {isPiece ? unfinished_[packet.endpoint].exchange : all_.size(), packet.length};
    unfinished_.erase(packet.endpoint);
    if (packet.kind == Kind::control && !packet.setup) {
        complain(packet, "a control transfer without its request is left out");
        return;
    }
    if (!isPiece) {
        Exchange& exchange = all_.emplace_back();
        isDropped_.push_back(packet.setup && isAnsweredByDescriptors(*packet.setup));
        exchange.packet = packet.number;
        exchange.kind = packet.kind;
        exchange.endpoint = packet.endpoint;
        exchange.setup = packet.setup.value_or(SetupBytes{});
        exchange.length = packet.length;
    }
    if (!packet.isIn()) {
        Bytes& sent = all_[flight.exchange].sent;
        sent.insert(sent.end(), packet.data, packet.data + packet.size);
        all_[flight.exchange].length = std::max(all_[flight.exchange].length, sent.size());
        if (packet.cut && packet.length > capture::kMostData) {
            unfinished_[packet.endpoint] = flight;
        }
        if (packet.cut && packet.size != capture::kMostData) {
            complainOfMissing(packet);
        }
    }
    flying_[packet.urb] = flight;
}

/// Long data are in several packets, each of which says how much is left.
bool RecordingReader::isNextPiece(const Packet& packet) const {
    const auto found = unfinished_.find(packet.endpoint);
    return found != unfinished_.end() && found->second.wanted - capture::kMostData == packet.length;
}

void RecordingReader::end(const Packet& packet) {
    const auto found = flying_.find(packet.urb);
    if (found == flying_.end()) {
        complain(packet, "the beginning of its transfer is not in the capture; it is left out");
        return;
    }
    const Flight flight = found->second;
    flying_.erase(found);
    Exchange& exchange = all_[flight.exchange];
    exchange.end = endOf(packet.status);
    exchange.after = all_.size();  // counts also what is not asked for; finish() puts it right
    if (packet.isIn() && exchange.kind != Kind::control && exchange.end == Exchange::End::silent) {
        // The bus asks for the first transfer at an endpoint only: not for one that was cancelled behind
        // another.
        isDropped_[flight.exchange] = std::any_of(
            flying_.begin(), flying_.end(), [&](const std::pair<const std::uint64_t, Flight>& other) {
                return other.second.exchange < flight.exchange &&
                       all_[other.second.exchange].endpoint == exchange.endpoint;
            });
    }
    if (packet.isIn()) {
        exchange.answered.insert(exchange.answered.end(), packet.data, packet.data + packet.size);
        if (packet.length == capture::kMostData && flight.wanted > capture::kMostData) {
            unfinished_[packet.endpoint] = flight;
        }
        if (packet.cut) {
            exchange.missing += packet.length - packet.size;
            complainOfMissing(packet);
        }
    }
}

/// Leaves out what the bus answers without asking: transfers at an endpoint that is halted already.
void RecordingReader::dropHalted() {
    std::set<std::uint8_t> halted;
    for (std::size_t i = 0; i < all_.size(); ++i) {
        const Exchange& exchange = all_[i];
        if (exchange.kind == Kind::control) {
            clearHalts(exchange.setup, halted);
        } else if (exchange.end == Exchange::End::stall) {
            isDropped_[i] = !halted.insert(exchange.endpoint).second;
        } else if (exchange.end == Exchange::End::completed) {
            halted.erase(exchange.endpoint);
        }
    }
}

void RecordingReader::clearHalts(const SetupBytes& setup, std::set<std::uint8_t>& halted) const {
    if (setup[0] == 0x02 && setup[1] == kClearFeature) {
        halted.erase(setup[4]);
    } else if (setup[0] == 0x00 && setup[1] == kSetConfiguration) {
        halted.clear();
    } else if (setup[0] == 0x01 && setup[1] == kSetInterface) {
        for (const EndpointPlace& each : endpointsOf(device_)) {
            if (each.interface == setup[4]) {
                halted.erase(each.address);
            }
        }
    }
}

void RecordingReader::finish() {
    for (const Exchange& exchange : all_) {
        if (exchange.kind == Kind::control) {
            keepDescriptor(exchange);
        }
    }
    askForMissingDescriptors();
    dropHalted();
    // By exchange: how many that are asked for have begun before it.
    std::vector<std::size_t> hostBefore(1);
    for (std::size_t i = 0; i < all_.size(); ++i) {
        hostBefore.push_back(hostBefore.back() + (isHost(all_[i]) && !isDropped_[i] ? 1U : 0U));
    }
    for (std::size_t i = 0; i < all_.size(); ++i) {
        if (!isDropped_[i]) {
            all_[i].after = isHost(all_[i]) ? hostBefore[i + 1] : hostBefore[all_[i].after];
            device_.exchanges.push_back(std::move(all_[i]));
        }
    }
}

/// What the device never gave is asked for in the replay, too: it is not among its descriptors.
void RecordingReader::askForMissingDescriptors() {
    for (std::size_t i = 0; i < all_.size(); ++i) {
        const SetupBytes& setup = all_[i].setup;
        if (isDropped_[i] && setup[1] == kGetDescriptor && setup[0] == 0x80) {
            const bool isMissing =
                (setup[3] == stringType && device_.strings.count(setup[2]) == 0) ||
                (setup[3] == configurationType && device_.configurations.count(setup[2]) == 0);
            isDropped_[i] = !isMissing;
        }
    }
}

void RecordingReader::keepDescriptor(const Exchange& exchange) {
    const SetupBytes& setup = exchange.setup;
    if (setup[1] != kGetDescriptor || exchange.end != Exchange::End::completed) {
        return;
    }
    if (setup[0] == 0x81 && setup[3] == reportType) {
        keep(device_.reports[setup[4]], exchange.answered);
    } else if (setup[0] == 0x80 && setup[3] == deviceType) {
        keep(device_.descriptor, exchange.answered);
    } else if (setup[0] == 0x80 && setup[3] == configurationType) {
        keep(device_.configurations[setup[2]], exchange.answered);
    } else if (setup[0] == 0x80 && setup[3] == stringType) {
        keep(device_.strings[setup[2]], exchange.answered);
    }
}

void RecordingReader::complain(const Packet& packet, const std::string& what) {
    problems_.push_back("packet " + std::to_string(packet.number) + ": " + what);
}

/// Once: a capture without data has no packet with all of its bytes.
void RecordingReader::complainOfMissing(const Packet& packet) {
    if (!std::exchange(saidMissing_, true)) {
        complain(packet, "the capture has only " + std::to_string(packet.size) + " of its " +
                             std::to_string(packet.length) +
                             " bytes; where it has less than was sent, writes are compared by that and their "
                             "length, and reads get zeroes");
    }
}

bool isAnsweredByDescriptors(const SetupBytes& setup) {
    if (setup[1] == kGetDescriptor) {
        return (setup[0] == 0x80 && setup[3] >= deviceType && setup[3] <= stringType) ||
               (setup[0] == 0x81 && setup[3] == reportType);
    }
    return (setup[0] & 0xE0U) == 0 && (setup[1] == kClearFeature || setup[1] == kSetAddress ||
                                       setup[1] == kSetConfiguration || setup[1] == kSetInterface);
}

}  // namespace simbus::replay
