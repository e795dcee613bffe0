#pragma once

// Included before all else where OldRuntime.cmake says so: the versions of functions that are asked for.

// std::condition_variable::wait
__asm__(
    ".symver _ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE,"
    "_ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE@GLIBCXX_3.4.11");
