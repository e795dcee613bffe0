// Stand-in for the system's header of this name: what libc++ uses of it.
#pragma once

#include <ctype.h>
#include <locale.h>
#include <stddef.h>

// Functions in this machine's C library, too, but as macros that take no 0 for a locale.
#undef isdigit_l
#undef isxdigit_l

extern "C" {
int snprintf_l(char* text, size_t size, locale_t locale, const char* format, ...);
int asprintf_l(char** text, locale_t locale, const char* format, ...);
int sscanf_l(const char* text, locale_t locale, const char* format, ...);
}
