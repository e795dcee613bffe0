// What the checks on a kernel's bus demand and wait for.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

constexpr unsigned generous = 20000;  // ms; an emulated machine may be slow, but nothing here takes that long

inline void expect(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

// Asks again and again until the answer is yes; for what the kernel and udev do without telling.
template <typename Question>
void waitFor(const std::string& what, Question question) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(generous);
    while (!question()) {
        expect(std::chrono::steady_clock::now() < deadline, "waited too long for " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}
