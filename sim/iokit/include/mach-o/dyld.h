// Stand-in for the system's header of this name: what the programs of the simulator use of it.
#pragma once

#include <stdint.h>

extern "C" int _NSGetExecutablePath(char* path, uint32_t* size);
