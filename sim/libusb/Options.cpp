#include "Options.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Checks.h"
#include "Contexts.h"
#include "LibusbNewer.h"

namespace sim {

namespace {

/// The level of LIBUSB_DEBUG, which programs cannot change; -1 without it.
int fixedLevel() {
    static const int level = [] {
        const char* text = std::getenv("LIBUSB_DEBUG");
        return text == nullptr ? -1 : std::clamp(std::atoi(text), 0, int{LIBUSB_LOG_LEVEL_DEBUG});
    }();
    return level;
}

const char* nameOf(libusb_log_level level) {
    static constexpr std::array<const char*, 5> kNames = {"", "error", "warning", "info", "debug"};
    return kNames.at(static_cast<std::size_t>(level));
}

/// The seconds since the first message.
double secondsSinceStart() {
    static const auto start = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The number of an option, which may be one that the enumeration does not have.
int numberOf(const libusb_option& option) {
    int number = 0;
    static_assert(sizeof number == sizeof option);
    std::memcpy(&number, &option, sizeof number);
    return number;
}

/// One option with its value, of whichever type.
struct Value {
    int number = 0;
    libusb_log_cb callback = nullptr;
};

int apply(Options& options, int option, const Value& value) {
    switch (option) {
        case LIBUSB_OPTION_LOG_LEVEL:
            if (value.number < LIBUSB_LOG_LEVEL_NONE || value.number > LIBUSB_LOG_LEVEL_DEBUG) {
                return LIBUSB_ERROR_INVALID_PARAM;
            }
            options.logLevel = fixedLevel() < 0 ? value.number : fixedLevel();
            return LIBUSB_SUCCESS;
        case LIBUSB_OPTION_NO_DEVICE_DISCOVERY:
            options.withoutDevices = true;
            return LIBUSB_SUCCESS;
        case static_cast<int>(LIBUSB_OPTION_LOG_CB):
            options.logCallback = value.callback;
            return LIBUSB_SUCCESS;
        case LIBUSB_OPTION_USE_USBDK:
            return LIBUSB_ERROR_NOT_SUPPORTED;
        default:
            return LIBUSB_ERROR_INVALID_PARAM;
    }
}

/// Without a context, sets an option of the contexts to come, and the level of the default one.
int setOption(const char* function, libusb_context* given, int option, const Value& value) {
    const StateLock lock(state().mutex);
    State& all = state();
    if (given != nullptr) {
        libusb_context* context = checkContext(function, given);
        return context == nullptr ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM)
                                  : apply(context->options, option, value);
    }
    const int result = apply(all.options, option, value);
    if (result == LIBUSB_SUCCESS && all.defaultContext != nullptr) {
        all.defaultContext->options.logLevel = all.options.logLevel;
    }
    return result;
}

}  // namespace

Options startingOptions() {
    Options options = state().options;
    options.logCallback = nullptr;
    if (fixedLevel() >= 0) {
        options.logLevel = fixedLevel();
    }
    return options;
}

bool isLogged(const libusb_context& context, libusb_log_level level) {
    return context.options.logLevel >= level;
}

void log(libusb_context& context, libusb_log_level level, const char* function, const std::string& text) {
    Options mine;
    Options all;
    {
        const StateLock lock(state().mutex);
        mine = context.options;
        all = state().options;
    }
    if (mine.logLevel < level) {
        return;
    }
    std::array<char, 64> time{};
    if (mine.logLevel == LIBUSB_LOG_LEVEL_DEBUG) {
        std::snprintf(time.data(), time.size(), "[%9.6f] ", secondsSinceStart());
    }
    const std::string line =
        time.data() + std::string("libusb: ") + nameOf(level) + " [" + function + "] " + text + "\n";
    if (all.logCallback != nullptr) {
        all.logCallback(nullptr, level, line.c_str());
    } else if (mine.logCallback == nullptr) {
        std::fputs(line.c_str(), stderr);
    }
    if (mine.logCallback != nullptr) {
        mine.logCallback(&context, level, line.c_str());
    }
}

}  // namespace sim

using sim::StateLock;

int libusb_set_option(libusb_context* context, libusb_option option, ...) {
    SIM_ENTER();
    const int number = sim::numberOf(option);
    sim::Value value;
    va_list arguments;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"  // the last named parameter is an enumeration, which C allows
    va_start(arguments, option);
#pragma GCC diagnostic pop
    if (number == LIBUSB_OPTION_LOG_LEVEL) {
        value.number = va_arg(arguments, int);
    } else if (number == LIBUSB_OPTION_LOG_CB) {
        value.callback = va_arg(arguments, libusb_log_cb);
    }
    va_end(arguments);
    return sim::setOption(__func__, context, number, value);
}

void libusb_set_debug(libusb_context* context, int level) {
    SIM_ENTER_VOID();
    const int known = std::clamp(level, int{LIBUSB_LOG_LEVEL_NONE}, int{LIBUSB_LOG_LEVEL_DEBUG});
    sim::setOption(__func__, context, LIBUSB_OPTION_LOG_LEVEL, {known, nullptr});
}

void libusb_set_log_cb(libusb_context* given, libusb_log_cb callback, int mode) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    if ((mode & LIBUSB_LOG_CB_GLOBAL) != 0) {
        sim::state().options.logCallback = callback;
    }
    if ((mode & LIBUSB_LOG_CB_CONTEXT) != 0) {
        if (libusb_context* context = sim::checkContext(__func__, given); context != nullptr) {
            context->options.logCallback = callback;
        }
    }
}

int libusb_init_context(libusb_context** context, const libusb_init_option options[], int count) {
    SIM_ENTER();
    sim::Options all;
    {
        const StateLock lock(sim::state().mutex);
        all = sim::startingOptions();
    }
    for (int i = 0; i < count; ++i) {
        const int number = sim::numberOf(options[i].option);
        sim::Value value;
        if (number == LIBUSB_OPTION_LOG_CB) {
            value.callback = options[i].value.log_cbval;
        } else {
            value.number = options[i].value.ival;
        }
        if (const int result = sim::apply(all, number, value); result != LIBUSB_SUCCESS) {
            return result;
        }
    }
    return sim::startContext(context, all);
}
