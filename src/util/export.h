#pragma once

/// Marks what leaves the shared library: everything else is built with hidden visibility. The C
/// header carries its own copy, since it includes nothing of ours.
#ifndef QZ_API
#define QZ_API __attribute__((visibility("default")))
#endif

/// Marks a class inside an exported one that stays in the library.
#define QZ_LOCAL __attribute__((visibility("hidden")))
