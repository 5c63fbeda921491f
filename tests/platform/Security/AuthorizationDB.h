#pragma once

// Test-only stand-in for the policy-database calls our Apple sources use. Never shipped.

#include <Security/Authorization.h>

typedef const void *CFTypeRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef struct __CFBundle *CFBundleRef;

// Here a constant string is the C literal itself, so the stand-in can read back the rule.
#define CFSTR(cStr) (reinterpret_cast<CFStringRef>(static_cast<const char *>(cStr)))
#define kAuthorizationRuleAuthenticateAsAdmin "authenticate-admin"

OSStatus AuthorizationRightGet(const char *rightName, CFDictionaryRef *rightDefinition);
OSStatus AuthorizationRightSet(AuthorizationRef authRef, const char *rightName,
    CFTypeRef rightDefinition, CFStringRef descriptionKey, CFBundleRef bundle,
    CFStringRef localeTableName);
