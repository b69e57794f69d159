#pragma once
/// Marks what libtessarin offers to others; everything else in the library is hidden.
#define TESSARIN_API __attribute__((visibility("default")))
