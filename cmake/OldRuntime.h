#pragma once

// Selects the versions of functions. OldRuntime.cmake includes this file before all others.

// std::condition_variable::wait
__asm__(
    ".symver _ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE,"
    "_ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE@GLIBCXX_3.4.11");
