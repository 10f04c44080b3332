#pragma once

/// Marks what leaves the shared library: everything else is built with hidden visibility. The C
/// header carries its own copy, since it includes nothing of ours.
#ifndef QZ_API
#define QZ_API __attribute__((visibility("default")))
#endif
