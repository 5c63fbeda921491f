#pragma once

// Test-only stand-in for the policy-database calls our Apple sources use. Never shipped.

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Authorization.h>

#define kAuthorizationRuleAuthenticateAsAdmin "authenticate-admin"

OSStatus AuthorizationRightGet(const char *rightName, CFDictionaryRef *rightDefinition);
OSStatus AuthorizationRightSet(AuthorizationRef authRef, const char *rightName,
    CFTypeRef rightDefinition, CFStringRef descriptionKey, CFBundleRef bundle,
    CFStringRef localeTableName);
