#pragma once

// Test-only stand-in for the few CoreFoundation declarations our Apple sources use, so
// they compile and run on Linux. Never shipped.

typedef const void *CFTypeRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef struct __CFBundle *CFBundleRef;

// Here a constant string is the C literal itself, so a test can read back what was passed.
#define CFSTR(cStr) (reinterpret_cast<CFStringRef>(static_cast<const char *>(cStr)))
