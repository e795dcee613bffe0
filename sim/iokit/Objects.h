// Objects of the stand-in Core Foundation and I/O Kit, and the count of those alive.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include <atomic>
#include <memory>
#include <string>

#include "Bus.h"

namespace sim {

constexpr const char* kObjectsInUse = "I/O Kit objects in use";

/// Counts one object in the bus's tallies for its lifetime.
class Counted {
 public:
    Counted() { simbus::Bus::instance().addToTally(kObjectsInUse, 1); }
    ~Counted() { simbus::Bus::instance().addToTally(kObjectsInUse, -1); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
};

enum class Kind : CFTypeID {
    string = 7,
    number = 22,
    dictionary = 18,
    uuid = 44,
    runLoop = 41,
    runLoopSource = 42
};

/// The base of every Core Foundation object. A constant object is neither counted nor freed.
struct Object {
    explicit Object(Kind kindOfIt, bool isConstant = false) : kind(kindOfIt), constant(isConstant) {
        if (!constant) {
            counted = std::make_unique<Counted>();
        }
    }
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    const Kind kind;
    const bool constant;
    std::atomic<int> references{1};
    std::unique_ptr<Counted> counted;
};

inline Object* objectOf(CFTypeRef reference) {
    return const_cast<Object*>(static_cast<const Object*>(reference));
}
/// The reference that the program sees: the address of the Object part.
template <class Ref>
Ref referenceTo(Object* object) {
    return reinterpret_cast<Ref>(object);
}

/// The library passes no options: any other value is recorded as a violation.
inline void expectNoOptions(const char* function, IOOptionBits options) {
    if (options != 0) {
        simbus::Bus::instance().addViolation(std::string(function) + ": options");
    }
}

bool isKind(CFTypeRef reference, Kind kind);
/// The text of a string object as UTF-8; the number of a number object; empty for any other object.
std::optional<std::string> textOf(CFTypeRef reference);
std::optional<std::int64_t> numberOf(CFTypeRef reference);

CFStringRef createString(const std::string& utf8);
CFNumberRef createNumber(std::int64_t value);

/// Creates an event source. When it is signalled, the run loop that it was added to calls `perform` on its
/// own thread.
CFRunLoopSourceRef createSource(std::function<void()> perform);
void signalSource(CFRunLoopSourceRef source);

/// First line of every function that can be made to fail: counts the call and gets the code to fail with.
#define SIM_CALL_POINT(name)                  \
    static simbus::CallPoint callPoint(name); \
    const std::optional<int> fault = callPoint.enter()

}  // namespace sim
