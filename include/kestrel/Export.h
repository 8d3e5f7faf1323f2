#pragma once

// The one export macro: the library is built with hidden visibility, so only what carries
// this mark is reachable from a program that links libkestrel.so.
#if defined(__GNUC__)
#define KESTREL_API __attribute__((visibility("default")))
#else
#define KESTREL_API
#endif
