// Included before all else: what macOS names otherwise than this machine's C library and the stand-ins.
#include <stdio.h>
#undef stderr
extern "C" FILE* __stderrp;
#define stderr __stderrp
extern "C" int issetugid(void);
// Made by the compiler, of a class that Core Foundation has.
#define CFSTR(text) reinterpret_cast<CFStringRef>(__builtin___CFStringMakeConstantString("" text ""))
